#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "TN_log.h"

namespace AccessDirectory {

/// Receives the log lines of the libraries. An error becomes part of the message of the command that it stops; with
/// `verbose` every line also goes to standard error, escaped. Thread-safe.
class Log : public Tarn::ILogSink {
public:
  /// Installs itself; gives way to the built-in sink when it ends.
  Log();
  ~Log() override;
  Log(const Log&) = delete;
  Log& operator=(const Log&) = delete;

  void SetVerbose(bool verbose) noexcept { m_Verbose = verbose; }

  /// Forgets what was logged so far.
  void Clear();
  /// The error lines since `Clear`, without their line ends.
  std::vector<std::string> Errors();
  /// Whether a statement gave up on a locked database since `Clear`.
  bool TimedOut();

  void VLog(Tarn::LogType_t level, const char* format, std::va_list arguments) override;

private:
  std::mutex m_Mutex;
  std::vector<std::string> m_Errors;
  bool m_TimedOut = false;
  bool m_Verbose = false;
};

/// The process's own.
Log& TheLog();

} // namespace AccessDirectory
