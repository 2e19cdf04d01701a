#include "Glance.h"

#include <algorithm>
#include <cstdint>

namespace Perenna::Pattern {

namespace {

class Glance {
public:
  bool IsPlain(std::string_view pattern) {
    if (pattern.size() > MaximumBytes) {
      return false;
    }
    for (std::size_t at = 0; at < pattern.size(); ++at) {
      if (!Take(pattern, at)) {
        return false;
      }
    }
    return m_loops <= MaximumLoops && m_choices <= MaximumChoices && m_wild <= MaximumWild && m_ends <= MaximumEnds;
  }

private:
  enum class After : std::uint8_t { Character, Group, Other };

  static constexpr std::size_t MaximumBytes = 200;
  static constexpr unsigned MaximumLoops = 4;
  static constexpr unsigned MaximumChoices = 5;
  static constexpr unsigned MaximumWild = 2;
  static constexpr unsigned MaximumEnds = 2;

  bool Take(std::string_view pattern, std::size_t& at) {
    switch (pattern[at]) {
    case '{':
      return false;
    case '^':
      return at == 0;
    case '$':
      ++m_ends;
      return true;
    case '(':
      ++m_choices;
      m_after = After::Other;
      return true;
    case ')':
      m_after = After::Group;
      return true;
    case '*':
    case '+':
      ++m_loops;
      return Repeat(After::Character);
    case '?':
      ++m_choices;
      return m_after == After::Group ? Repeat(After::Group) : Repeat(After::Character);
    case '[':
      return SkipList(pattern, at) && TakeWild(pattern, at);
    case '.':
      return TakeWild(pattern, at);
    case '\\':
      ++at;
      m_after = After::Character;
      return at < pattern.size() && std::string_view(".-+*?()[]{}|^$/\\").find(pattern[at]) != std::string_view::npos;
    default:
      m_after = After::Character;
      return true;
    }
  }

  bool Repeat(After expected) {
    const bool fits = m_after == expected;
    m_after = After::Other;
    return fits;
  }

  /// A character of several bytes to choose from: harmless where it is a loop, or where every text comes to it alike.
  bool TakeWild(std::string_view pattern, std::size_t at) {
    const char next = at + 1 < pattern.size() ? pattern[at + 1] : '\0';
    const bool loop = next == '*' || next == '+';
    m_wild += loop || (m_loops == 0 && m_choices == 0 && next != '?') ? 0 : 1;
    m_after = After::Character;
    return true;
  }

  /// To the list's "]"; false for one with classes.
  static bool SkipList(std::string_view pattern, std::size_t& at) {
    at += at + 1 < pattern.size() && pattern[at + 1] == '^' ? 2 : 1;
    const std::size_t end = pattern.find_first_of("[]", std::min(at + 1, pattern.size()));
    const bool plain = end != std::string_view::npos && pattern[end] == ']' && pattern[at] != '[';
    at = end;
    return plain;
  }

  After m_after = After::Other;
  unsigned m_loops = 0;
  unsigned m_choices = 0;
  unsigned m_wild = 0;
  unsigned m_ends = 0;
};

} // namespace

bool IsPlain(std::string_view pattern) {
  return Glance().IsPlain(pattern);
}

} // namespace Perenna::Pattern
