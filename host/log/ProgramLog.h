#pragma once

#include "TN_log.h"

namespace Host {

/// Hands lines of the program and its libraries on to another sink, those less than a level left out; LOG_DEBUG,
/// LOG_INFO, LOG_NOTICE, LOG_WARN, LOG_ERROR is the order. Thread-safe where that sink is, which must outlive it.
class ProgramLog : public Tarn::ILogSink {
public:
  ProgramLog(Tarn::ILogSink& next, Tarn::LogType_t least) : m_Next(next), m_Least(Severity(least)) {}

  void VLog(Tarn::LogType_t level, const char* format, std::va_list arguments) override;

private:
  static int Severity(Tarn::LogType_t level) noexcept;

  Tarn::ILogSink& m_Next;
  int m_Least;
};

} // namespace Host
