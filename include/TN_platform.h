#pragma once

#include <cstdint>

/// Marks what the libraries export; everything else is built hidden.
#if defined(__GNUC__)
#define TN_API __attribute__((visibility("default")))
#define TN_PRINTF_FORMAT(format_index, first_argument) __attribute__((format(printf, format_index, first_argument)))
#else
#define TN_API
#define TN_PRINTF_FORMAT(format_index, first_argument)
#endif

/// Ends the process when a precondition that only a programming error can break does not hold: writes `text` and the
/// place to standard error and calls `abort`. Active in every build type, since the alternative is undefined behaviour
/// in an access-control module.
#define TN_REQUIRE(condition, text)                                                                                    \
  (static_cast<bool>(condition) ? static_cast<void>(0) : ::Tarn::FatalPrecondition(text, __FILE__, __LINE__))

namespace Tarn {

/// One byte of a binary value.
using byte_t = std::uint8_t;

/// Writes "fatal: TEXT (FILE:LINE)" to standard error and aborts. Called through TN_REQUIRE; thread-safe.
[[noreturn]] TN_API void FatalPrecondition(const char* text, const char* file, int line) noexcept;

} // namespace Tarn
