#include "directory/Log.h"

#include <array>
#include <cstdio>
#include <cstring>

namespace AccessDirectory {

namespace {

constexpr std::size_t MaximumLineBytes = 4096; // a pattern of a megabyte does not belong on a terminal
constexpr std::size_t MaximumErrors = 100;     // a thousand patterns that do not compile say it once each

thread_local Log s_log;

} // namespace

void Log::Clear() {
  m_Errors.clear();
  m_TimedOut = false;
}

void Log::Take(Tarn::LogType_t level, const std::string& line) {
  if (level == Tarn::LOG_ERROR && m_Errors.size() < MaximumErrors) {
    m_Errors.push_back(line);
  }
}

void LogSink::VLog(Tarn::LogType_t level, const char* format, std::va_list arguments) {
  if (m_Next != nullptr) {
    std::va_list again;
    va_copy(again, arguments);
    m_Next->VLog(level, format, again);
    va_end(again);
  }
  // Of the debug lines, of which every decision writes some, only this one is looked at: it needs no formatting.
  const bool timed_out = level == Tarn::LOG_DEBUG && std::strcmp(format, "Locked database, timed out.\n") == 0;
  s_log.m_TimedOut = s_log.m_TimedOut || timed_out;
  if (level != Tarn::LOG_ERROR && !m_Follower) {
    return;
  }
  std::array<char, MaximumLineBytes> buffer; // NOLINT(cppcoreguidelines-pro-type-member-init): filled below
  if (std::vsnprintf(buffer.data(), buffer.size(), format, arguments) < 0) {
    return;
  }
  std::string line = buffer.data();
  if (!line.empty() && line.back() == '\n') {
    line.pop_back();
  }
  s_log.Take(level, line);
  if (m_Follower) {
    m_Follower(line);
  }
}

LogSink& TheLogSink() {
  static LogSink& sink = *new LogSink(nullptr); // threads may log until the process ends
  static const bool installed = [] {
    if (Tarn::ILogSink* const own = Tarn::SetDefaultLogSink(&sink); own != nullptr) {
      Tarn::SetDefaultLogSink(own); // the process has one: it stays
    }
    return true;
  }();
  static_cast<void>(installed);
  return sink;
}

Log& TheLog() {
  TheLogSink();
  return s_log;
}

} // namespace AccessDirectory
