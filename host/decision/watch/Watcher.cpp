#include "host/decision/watch/Watcher.h"

namespace Host {

namespace {

constexpr int BusyMilliseconds = 50;

bool operator!=(const timespec& left, const timespec& right) noexcept {
  return left.tv_sec != right.tv_sec || left.tv_nsec != right.tv_nsec;
}

bool IsLocked(int status) noexcept {
  return (status & 0xff) == SQLITE_BUSY || (status & 0xff) == SQLITE_LOCKED;
}

} // namespace

Watcher::Watcher(DirectoryFile& file)
    : m_File(file), m_Reader(file.Path(), BusyMilliseconds), m_DataVersion(m_Reader, "PRAGMA data_version"),
      m_JournalMode(m_Reader, "PRAGMA journal_mode") {}

Watcher::State Watcher::Observe() {
  struct stat status {};
  const auto look = [&] { return m_File.Look(status); };
  const auto fault = [](DirectoryFile::State state) {
    return state == DirectoryFile::State::Gone ? State::Gone : State::Failed;
  };
  if (const DirectoryFile::State state = look(); state != DirectoryFile::State::There) {
    return fault(state);
  }
  sqlite3_int64 version = -1;
  int rc = m_DataVersion.Run({}, [&](const ReaderQuery& row) { version = row.Number(0); });
  if (rc != SQLITE_DONE || version < 0) {
    return IsLocked(rc) ? State::Busy : State::Failed;
  }
  if (version == m_Version) {
    // Without a write-ahead log nothing but a commit changes the file: it was written past SQLite.
    if (!m_IsWal && (status.st_size != m_Size || status.st_mtim != m_Modified)) {
      m_File.SetGone();
      return State::Gone;
    }
    return State::Seen;
  }
  rc = m_JournalMode.Run({}, [&](const ReaderQuery& row) { m_IsWal = row.Text(0) == "wal"; });
  if (rc != SQLITE_DONE) {
    return IsLocked(rc) ? State::Busy : State::Failed;
  }
  // Looked at once more: a later commit that this look sees comes with a later version too.
  if (const DirectoryFile::State state = look(); state != DirectoryFile::State::There) {
    return fault(state);
  }
  m_Version = version;
  m_Size = status.st_size;
  m_Modified = status.st_mtim;
  return State::Seen;
}

} // namespace Host
