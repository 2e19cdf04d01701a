#pragma once

#include "host/decision/watch/DirectoryFile.h"
#include "host/decision/Reader.h"

namespace Host {

/// Tells whether anybody has committed a change to the directory. A connection of its own, which reads nothing else
/// and never writes, so that every commit is another's to it. One thread's own.
class Watcher {
public:
  /// Opens the file. Throws `AccessDirectory::Failure` (System).
  explicit Watcher(DirectoryFile& file);

  enum class State {
    Seen, ///< `Version` is that of a moment within the call
    Busy, ///< a writer kept the file locked
    Failed,
    Gone
  };
  State Observe();
  /// Differs from that of another observation of this object whenever something was committed in between.
  sqlite3_int64 Version() const noexcept { return m_Version; }

private:
  DirectoryFile& m_File;
  Reader m_Reader;
  ReaderQuery m_DataVersion;
  ReaderQuery m_JournalMode;
  sqlite3_int64 m_Version = -1; // before the first observation
  bool m_IsWal = false;
  off_t m_Size = 0;
  timespec m_Modified{};
};

} // namespace Host
