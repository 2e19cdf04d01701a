#pragma once

#include <cstdint>
#include <string>

#include "TN_platform.h"

namespace Tarn {

/// The outcome of a fallible operation: a signed code with its short symbol and a sentence for people.
///
/// 0 and positive values are successes, negative values failures. A plain value type: copies are independent, and
/// distinct objects may be used from different threads.
struct TN_API Result_t {
  std::int32_t value;  ///< the code
  std::string label;   ///< "SYMBOL (value)", for log lines
  std::string symbol;  ///< short name, for example "NOT_FOUND"
  std::string message; ///< one sentence in English

  Result_t(int code, const std::string& code_symbol, const std::string& code_message);

  /// True for the negative codes.
  bool Failed() const noexcept { return value < 0; }
};

/// Results are the same when their codes are; the texts play no part.
inline bool operator==(const Result_t& left, const Result_t& right) noexcept {
  return left.value == right.value;
}
inline bool operator!=(const Result_t& left, const Result_t& right) noexcept {
  return !(left == right);
}

// The general codes. Constructed when the library is loaded, never changed afterwards; any thread may read them.

TN_API extern const Result_t RESULT_OK;         ///< 0: done; of a statement step, a row is waiting
TN_API extern const Result_t RESULT_FALSE;      ///< 1: done, without a row or a change to report
TN_API extern const Result_t RESULT_ALLOC;      ///< -4: memory ran out
TN_API extern const Result_t RESULT_PARAM;      ///< -5: an argument is missing or malformed
TN_API extern const Result_t RESULT_NOTIMPL;    ///< -6: the operation is not implemented
TN_API extern const Result_t RESULT_INIT;       ///< -8: an object lacks what it needs before it can work
TN_API extern const Result_t RESULT_NOT_FOUND;  ///< -9: the thing named does not exist
TN_API extern const Result_t RESULT_STATE;      ///< -11: the state of an object or of the directory forbids it
TN_API extern const Result_t RESULT_FILEEXISTS; ///< -18: the name is taken

} // namespace Tarn
