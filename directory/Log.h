#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "TN_log.h"

namespace AccessDirectory {

/// Receives the log lines of the libraries. An error becomes part of the message of the operation that it stops.
/// Thread-safe.
class Log : public Tarn::ILogSink {
public:
  /// Installs itself; gives way to the built-in sink when it ends.
  Log();
  ~Log() override;
  Log(const Log&) = delete;
  Log& operator=(const Log&) = delete;

  /// Called with every line, of any level and without its line end. Set before other threads log.
  using Follower = std::function<void(const std::string& line)>;
  void SetFollower(Follower follower) { m_Follower = std::move(follower); }

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
  Follower m_Follower;
};

/// The process's own.
Log& TheLog();

} // namespace AccessDirectory
