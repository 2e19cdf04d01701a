#include "host/decision/watch/CallWatch.h"

#include <cstring>

#include <sqlite3.h>

#include "TN_platform.h"
#include "directory/Failure.h"

namespace Host {

namespace {

thread_local CallWatch* t_Watch = nullptr;

constexpr int PrimaryCode = 0xff; // of an extended result code

bool BeginsWith(const char* text, const char* beginning) noexcept {
  return std::strncmp(text, beginning, std::strlen(beginning)) == 0;
}

} // namespace

void WatchSqliteErrors() {
  static bool is_installed = false;
  if (is_installed) {
    return;
  }
  if (sqlite3_config(SQLITE_CONFIG_LOG, &CallWatch::OnSqliteLog, nullptr) != SQLITE_OK) {
    throw AccessDirectory::Failure(AccessDirectory::Failure::Kind::System,
                                   "the error log of SQLite cannot be watched: SQLite is already in use");
  }
  is_installed = true;
}

void WatchedLog::VLog(Tarn::LogType_t level, const char* format, std::va_list arguments) {
  const bool goes_on = t_Watch == nullptr || t_Watch->OnLine(format);
  if (goes_on && m_Next != nullptr) {
    m_Next->VLog(level, format, arguments);
  }
}

CallWatch::CallWatch() {
  TN_REQUIRE(t_Watch == nullptr, "t_Watch==0");
  t_Watch = this;
}

CallWatch::~CallWatch() {
  t_Watch = nullptr;
}

// Called by SQLite with locks of its own held: nothing here may call it.
void CallWatch::OnSqliteLog(void* /*unused*/, int code, const char* message) {
  const int primary = code & PrimaryCode;
  if (t_Watch != nullptr && primary != SQLITE_NOTICE && primary != SQLITE_WARNING && primary != SQLITE_SCHEMA) {
    t_Watch->Note(message);
  }
}

bool CallWatch::OnLine(const char* format) {
  constexpr const char* Failures[] = {"Locked database, timed out.", "No prepared statement ", "No database handle "};
  for (const char* const failure : Failures) {
    if (BeginsWith(format, failure)) {
      Note(failure);
    }
  }
  m_Digested = m_Digested || BeginsWith(format, "auth_method: \"sha256\"");
  // All lines about a method come after the row was read, and none comes without one.
  m_FoundUser = m_FoundUser || std::strstr(format, "auth_method") != nullptr;
  return !m_Silent;
}

void CallWatch::Note(const char* failure) {
  constexpr std::size_t MaximumBytes = 200; // the text may hold a whole statement
  if (m_Failure.empty()) {
    m_Failure.assign(failure, strnlen(failure, MaximumBytes));
  }
}

} // namespace Host
