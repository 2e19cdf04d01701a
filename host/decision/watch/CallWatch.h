#pragma once

#include <string>

#include "TN_log.h"

namespace Host {

/// Hooks into SQLite's error log (SQLITE_CONFIG_LOG). Has to come before anything in the process uses SQLite, and
/// before other threads start; a second call does nothing. Throws `AccessDirectory::Failure` (System) when it is too
/// late: failures of the database could then be taken for refusals.
void WatchSqliteErrors();

/// A log sink that hands every line on to `next` (null: to nobody) after a look at it for the `CallWatch` of the
/// calling thread. Thread-safe as far as `next` is.
class WatchedLog : public Tarn::ILogSink {
public:
  explicit WatchedLog(Tarn::ILogSink* next) : m_Next(next) {}
  void VLog(Tarn::LogType_t level, const char* format, std::va_list arguments) override;

private:
  Tarn::ILogSink* m_Next;
};

/// Sees, while it lives, what happens inside the module on this thread: the module folds every failure into "no".
/// Needs `WatchSqliteErrors` and an installed `WatchedLog`. One at a time on a thread.
class CallWatch {
public:
  CallWatch();
  ~CallWatch();
  CallWatch(const CallWatch&) = delete;
  CallWatch& operator=(const CallWatch&) = delete;

  /// Whether the database failed: then an answer of the module is none.
  bool Failed() const noexcept { return !m_Failure.empty(); }
  /// The first failure, in a few words; empty without one.
  const std::string& Failure() const noexcept { return m_Failure; }

  /// Whether the module found the user whose password it checked, and whether it computed a digest for that.
  bool FoundUser() const noexcept { return m_FoundUser; }
  bool Digested() const noexcept { return m_Digested; }

  /// Keeps lines of this thread from the log: of calls that are made for the sake of their duration.
  void Silence() noexcept { m_Silent = true; }

private:
  friend class WatchedLog;
  friend void WatchSqliteErrors();

  static void OnSqliteLog(void* unused, int code, const char* message);
  /// Whether the line may be handed on.
  bool OnLine(const char* format);
  void Note(const char* failure);

  std::string m_Failure;
  bool m_FoundUser = false;
  bool m_Digested = false;
  bool m_Silent = false;
};

} // namespace Host
