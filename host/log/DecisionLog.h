#pragma once

#include "host/decision/Verdict.h"
#include "host/log/LogFile.h"

namespace Host {

/// The decision log: a line for each verdict, and the last of them in memory. Any thread may call it.
class DecisionLog {
public:
  /// An empty name: the last lines are kept all the same. Throws as `LogFile`.
  explicit DecisionLog(const std::string& file) : m_File(file, KeptLines) {}

  void Write(const Verdict& verdict);

  LogFile& File() noexcept { return m_File; }

private:
  static constexpr std::size_t KeptLines = 1000;

  LogFile m_File;
};

} // namespace Host
