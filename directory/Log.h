#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "TN_log.h"

namespace AccessDirectory {

/// The lines that the libraries log on one thread. An error becomes part of the message of the operation that it stops.
/// One thread's own.
class Log {
public:
  /// Forgets what was logged so far.
  void Clear();
  /// The error lines since `Clear`, without their line ends.
  const std::vector<std::string>& Errors() const noexcept { return m_Errors; }
  /// Whether a statement gave up on a locked database since `Clear`.
  bool TimedOut() const noexcept { return m_TimedOut; }

private:
  friend class LogSink;
  void Take(Tarn::LogType_t level, const std::string& line);

  std::vector<std::string> m_Errors;
  bool m_TimedOut = false;
};

/// The calling thread's own. A process that has installed no sink of its own by then gets a `LogSink`; one that does
/// so later has to hand its lines on to one.
Log& TheLog();

/// Sorts lines into the logs of the threads that they come from, and hands them on. Thread-safe where the next is.
class LogSink : public Tarn::ILogSink {
public:
  /// `next` outlives the object; null: nobody.
  explicit LogSink(Tarn::ILogSink* next) : m_Next(next) {}

  /// Called with every line, of any level and without its line end. Set before other threads log.
  using Follower = std::function<void(const std::string& line)>;
  void SetFollower(Follower follower) { m_Follower = std::move(follower); }

  void VLog(Tarn::LogType_t level, const char* format, std::va_list arguments) override;

private:
  Tarn::ILogSink* m_Next;
  Follower m_Follower;
};

/// The sink that `TheLog` installs.
LogSink& TheLogSink();

} // namespace AccessDirectory
