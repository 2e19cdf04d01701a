#include "host/log/ProgramLog.h"

namespace Host {

int ProgramLog::Severity(Tarn::LogType_t level) noexcept {
  switch (level) {
  case Tarn::LOG_DEBUG:
    return 0;
  case Tarn::LOG_INFO:
    return 1;
  case Tarn::LOG_NOTICE:
    return 2;
  case Tarn::LOG_WARN:
    return 3;
  default: // errors, and what is worse
    return 4;
  }
}

void ProgramLog::VLog(Tarn::LogType_t level, const char* format, std::va_list arguments) {
  if (Severity(level) >= m_Least) {
    m_Next.VLog(level, format, arguments);
  }
}

} // namespace Host
