#pragma once

#include <string>

#include <regex.h>

#include "TN_platform.h"

namespace Perenna {

/// A compiled POSIX extended regular expression (IEEE Std 1003.1, 9.4) with REG_NEWLINE: "^" and "$" also match at
/// line breaks, "." and non-matching bracket lists do not match one.
///
/// Patterns are hostile input, and the C library would let them exhaust the stack or memory. One that nests more than
/// 250 groups, or whose repetition counts expand to more than 100,000 elements or 3,000 elements that may be left out
/// or chosen between, is refused as too big; one with a back-reference ("\1", undefined in extended expressions) is
/// refused too. The time of a match has no bound of its own: it grows with pattern and text, in bad cases with their
/// product and more.
///
/// Patterns are compiled and matched byte by byte, in the C locale, whatever locale the process has set: the same
/// decision in every host.
///
/// Not copied. Tests may run on several threads at once.
class TN_API RegularExpression {
public:
  /// What a test found. `Undecided`: the pattern may well match, but this library would not compile it for its size, or
  /// memory ran out; whoever asks for the sake of a "Deny" must not take it for a no.
  enum class Outcome { NoMatch, Match, Undecided };

  /// Compiles `pattern` (up to its first NUL). One that does not compile is logged at Error as
  /// "regex init failed for expression \"%s\": %s\n" and never matches; neither does an empty one, which is not logged.
  explicit RegularExpression(const std::string& pattern);
  ~RegularExpression();
  RegularExpression(const RegularExpression&) = delete;
  RegularExpression& operator=(const RegularExpression&) = delete;

  /// Looks for a match anywhere in `text` (up to its first NUL). A pattern that the C library refuses for its syntax
  /// gives `NoMatch`, one that is too big for this library or for the memory at hand `Undecided`.
  Outcome Test(const char* text) const noexcept;

  /// Whether `Test` gives `Match`.
  bool match(const std::string& text) const noexcept { return match(text.c_str()); }
  bool match(const char* text) const noexcept { return Test(text) == Outcome::Match; }

  /// As `match`, and reports the first match as the half-open byte range [begin, end) of `text`.
  bool match(const std::string& text, std::size_t& begin, std::size_t& end) const noexcept;

  /// Whether the pattern compiled.
  bool valid() const noexcept { return m_regex_init; }

private:
  regex_t m_regex{};
  bool m_regex_init = false;
  bool m_undecided = false; // not compiled for a reason that says nothing about what the pattern matches
};

} // namespace Perenna
