#pragma once

#include <cstddef>
#include <string_view>

namespace Perenna::Pattern {

/// Texts up to this length are matched within the limits.
constexpr std::size_t SubjectBytes = 8192;

struct Judgement {
  /// Why the pattern must not reach the C library, in words that follow "is too costly: "; null if it may.
  const char* refusal = nullptr;
  /// The refusal is for its back-references.
  bool for_reference = false;
  /// The C library refuses the pattern itself. If it should not, it must not be matched.
  bool malformed = false;
};

/// Whether the C library compiles a pattern (up to its first NUL) and matches it to any text of `SubjectBytes` in about
/// a second and 512 MiB. In doubt a pattern is refused. Takes at most about 0.1 s and 100 MiB, and for common patterns
/// some hundred instructions; of others the last few thousand are remembered. Thread-safe; throws std::bad_alloc only.
Judgement Judge(std::string_view pattern);

} // namespace Perenna::Pattern
