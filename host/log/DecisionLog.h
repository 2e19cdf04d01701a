#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "host/decision/Verdict.h"
#include "host/log/LogFile.h"

namespace Host {

/// The decision log: a line for each verdict, and the last of them in memory. Any thread may call it.
///
/// The lock guards the verdicts that are kept. They become lines when somebody asks for them: nearly all are dropped
/// before that.
class DecisionLog {
public:
  /// An empty name: the last verdicts are kept all the same. Throws as `LogFile`.
  explicit DecisionLog(const std::string& file) : m_File(file) {}

  void Write(const Verdict& verdict);

  /// The lines of the last thousand verdicts, without their line ends, the newest first.
  std::vector<std::string> Last();

  LogFile& File() noexcept { return m_File; }

private:
  static constexpr std::size_t KeptVerdicts = 1000;

  LogFile m_File;
  std::mutex m_Mutex;
  std::vector<Verdict> m_Kept; // a ring, whose texts' memory is used again
  std::size_t m_Next = 0;      // the place of the next one: that of the oldest when the ring is full
};

} // namespace Host
