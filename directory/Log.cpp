#include "directory/Log.h"

#include <array>
#include <cstdio>

namespace AccessDirectory {

namespace {

constexpr std::size_t MaximumLineBytes = 4096; // a pattern of a megabyte does not belong on a terminal
constexpr std::size_t MaximumErrors = 100;     // a thousand patterns that do not compile say it once each

} // namespace

Log::Log() {
  Tarn::SetDefaultLogSink(this);
}

Log::~Log() {
  Tarn::SetDefaultLogSink(nullptr);
}

void Log::Clear() {
  const std::lock_guard<std::mutex> hold(m_Mutex);
  m_Errors.clear();
  m_TimedOut = false;
}

std::vector<std::string> Log::Errors() {
  const std::lock_guard<std::mutex> hold(m_Mutex);
  return m_Errors;
}

bool Log::TimedOut() {
  const std::lock_guard<std::mutex> hold(m_Mutex);
  return m_TimedOut;
}

void Log::VLog(Tarn::LogType_t level, const char* format, std::va_list arguments) {
  if (level != Tarn::LOG_ERROR && level != Tarn::LOG_DEBUG && !m_Follower) {
    return;
  }
  std::array<char, MaximumLineBytes> buffer{};
  if (std::vsnprintf(buffer.data(), buffer.size(), format, arguments) < 0) {
    return;
  }
  std::string line = buffer.data();
  if (!line.empty() && line.back() == '\n') {
    line.pop_back();
  }
  const std::lock_guard<std::mutex> hold(m_Mutex);
  if (level == Tarn::LOG_ERROR && m_Errors.size() < MaximumErrors) {
    m_Errors.push_back(line);
  }
  m_TimedOut = m_TimedOut || line == "Locked database, timed out.";
  if (m_Follower) {
    m_Follower(line);
  }
}

Log& TheLog() {
  static Log log;
  return log;
}

} // namespace AccessDirectory
