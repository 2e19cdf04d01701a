#pragma once

#include <cstdarg>
#include <cstdint>

#include "TN_platform.h"

namespace Tarn {

/// Level of a log line. The numbers are fixed; they name kinds of lines and are not a scale of severity.
enum LogType_t : std::uint32_t {
  LOG_DEBUG = 0,
  LOG_INFO = 1,
  LOG_WARN = 2,
  LOG_ERROR = 3,
  LOG_NOTICE = 4,
  LOG_ALERT = 5,
  LOG_CRIT = 6,
  LOG_MAX = 7 ///< the bound, not a level
};

/// Where log lines go. A host derives from it, implements `VLog` and installs the object with `SetDefaultLogSink`.
///
/// `VLog` is called from any thread, also while one of the module's locks is held: it must be thread-safe, must not
/// call back into the module and should not throw.
class TN_API ILogSink {
public:
  ILogSink() = default;
  virtual ~ILogSink();
  ILogSink(const ILogSink&) = delete;
  ILogSink& operator=(const ILogSink&) = delete;

  /// Each hands its level, the printf-style format and the arguments to `VLog`. Formats end in "\n".
  void Error(const char* format, ...) TN_PRINTF_FORMAT(2, 3);
  void Notice(const char* format, ...) TN_PRINTF_FORMAT(2, 3);
  void Debug(const char* format, ...) TN_PRINTF_FORMAT(2, 3);

  /// Formats and stores one line. The arguments may hold hostile text (ids, patterns): an implementation that writes
  /// to a terminal or to a line-oriented file has to escape control characters.
  virtual void VLog(LogType_t level, const char* format, std::va_list arguments) = 0;
};

/// The process's log sink: the one installed last, else one that writes stamped lines to standard error, each with a
/// single `write`: "2026-01-31T12:00:00+00:00 ERROR text". That default leaves out LOG_DEBUG unless
/// `SetDefaultLogDebug(true)`, writes bytes other than printable ASCII as \xNN and cuts lines at 4,096 bytes.
/// Thread-safe.
TN_API ILogSink& DefaultLogSink() noexcept;

/// Installs `sink`, or the built-in default when it is null, and returns the one installed before (null for the
/// built-in). The sink stays the caller's and must outlive its installation, including calls that other threads have
/// already started. Thread-safe.
TN_API ILogSink* SetDefaultLogSink(ILogSink* sink) noexcept;

/// Whether the built-in sink writes LOG_DEBUG lines. Thread-safe.
TN_API void SetDefaultLogDebug(bool enabled) noexcept;

} // namespace Tarn
