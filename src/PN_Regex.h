#pragma once

#include <string>

#include <regex.h>

#include "TN_platform.h"

namespace Perenna {

/// A compiled POSIX extended regular expression (IEEE Std 1003.1, 9.4) with REG_NEWLINE: "^" and "$" also match at
/// line breaks, "." and non-matching bracket lists do not match one.
///
/// Patterns are hostile input, and the C library would let them exhaust the stack, memory and time. One that could take
/// more than about a second or 512 MiB to compile and to match a text of 8 KiB is refused: groups nested more than 250
/// deep, repetitions that expand to more than 100,000 elements or whose parts can match a text in too many ways,
/// assertions such as "^" and "\b" that are repeated or follow each other by the dozen. A back-reference ("\1",
/// undefined in extended expressions) is compiled unless it or its group is repeated or stands beside an empty
/// alternative, its text could end at any place, or there are more than four. In doubt a pattern is refused.
///
/// Patterns are compiled and matched byte by byte, in the C locale, whatever locale the process has set: the same
/// decision in every host.
///
/// Not copied. Tests may run on several threads at once.
class TN_API RegularExpression {
public:
  /// What a test found. `Undecided`: the pattern may well match, but this library would not compile it for its cost,
  /// or memory ran out; whoever asks for the sake of a "Deny" must not take it for a no.
  enum class Outcome { NoMatch, Match, Undecided };

  /// Compiles `pattern` (up to its first NUL). One that does not compile is logged at Error as
  /// "regex init failed for expression \"%s\": %s\n" and never matches; neither does an empty one, which is not logged.
  explicit RegularExpression(const std::string& pattern);
  /// For one `Test`, without arguments, of `text` (up to its first NUL), which must live as long: takes a fraction of
  /// what compiling takes where the literal text behind a leading "^" differs from the text's beginning, and otherwise
  /// compiles only what stands behind it. Logs and finds the same.
  RegularExpression(const std::string& pattern, const char* text);
  ~RegularExpression();
  RegularExpression(const RegularExpression&) = delete;
  RegularExpression& operator=(const RegularExpression&) = delete;

  /// Looks for a match anywhere in `text` (up to its first NUL). A pattern that the C library refuses for its syntax
  /// gives `NoMatch`, one that is too costly for this library or for the memory at hand `Undecided`.
  Outcome Test(const char* text) const noexcept;
  Outcome Test() const noexcept { return Test(m_rest); }

  /// Whether `Test` gives `Match`.
  bool match(const std::string& text) const noexcept { return match(text.c_str()); }
  bool match(const char* text) const noexcept { return Test(text) == Outcome::Match; }

  /// As `match`, and reports the first match as the half-open byte range [begin, end) of `text`.
  bool match(const std::string& text, std::size_t& begin, std::size_t& end) const noexcept;

  /// Whether the pattern, or what was left of it to be tested, compiled.
  bool valid() const noexcept { return m_regex_init; }

private:
  /// Compiles `source`, in the log `pattern`; refuses it for `refusal` if that is not null, or when it compiles
  /// although it is `malformed`.
  void Compile(const char* pattern, const char* source, const char* refusal, bool malformed);

  regex_t m_regex{};
  const char* m_rest = ""; // of the text to test, behind what has been compared
  bool m_regex_init = false;
  bool m_undecided = false; // not compiled for a reason that says nothing about what the pattern matches
};

} // namespace Perenna
