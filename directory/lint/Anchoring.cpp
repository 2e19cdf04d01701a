#include "directory/lint/Anchoring.h"

#include <array>
#include <cstdlib>
#include <cstring>

#include "PN_Regex.h"

namespace AccessDirectory {

namespace {

/// Reads the beginnings of alternatives. The pattern compiles, so groups and bracket lists are closed, and groups do
/// not nest too deep for recursion.
class Reader {
public:
  explicit Reader(const char* pattern) : m_Next(pattern) {}

  /// Whether every alternative, up to the end or the end of the group, begins with `wanted`.
  bool EveryAlternative(char wanted) {
    bool every = Begins(wanted);
    SkipAlternative();
    while (*m_Next == '|') {
      ++m_Next;
      every = Begins(wanted) && every;
      SkipAlternative();
    }
    return every;
  }

  /// Whether a closing parenthesis was read that closes nothing and so stands for itself.
  bool HasStrayParenthesis() const { return m_Stray; }

private:
  bool Begins(char wanted) {
    if (*m_Next == wanted) {
      return true;
    }
    if (*m_Next != '(') {
      return false;
    }
    const bool inner = Group(wanted);
    Skip(')');
    return inner && !MayBeMissing();
  }

  /// From the parenthesis that opens a group to the one that closes it.
  bool Group(char wanted) {
    ++m_Next;
    ++m_Depth;
    const bool every = EveryAlternative(wanted);
    --m_Depth;
    return every;
  }

  /// Whether what was just read may be repeated zero times.
  bool MayBeMissing() const {
    const bool counted = *m_Next == '{' && std::strtoul(m_Next + 1, nullptr, 10) == 0;
    return *m_Next == '*' || *m_Next == '?' || counted;
  }

  void SkipAlternative() {
    for (; *m_Next != '\0' && *m_Next != '|'; ++m_Next) {
      if (*m_Next == ')' && m_Depth > 0) {
        return;
      }
      m_Stray = m_Stray || *m_Next == ')';
      if (*m_Next == '(') {
        Group('^');
      } else if (*m_Next == '[') {
        SkipBracketList();
      } else if (*m_Next == '\\') {
        m_Next += m_Next[1] != '\0' ? 1 : 0;
      }
      if (*m_Next == '\0') {
        return;
      }
    }
  }

  /// Up to the bracket that ends the list: not one that comes first, nor one inside "[: :]", "[. .]" or "[= =]".
  void SkipBracketList() {
    ++m_Next;
    Skip('^');
    Skip(']');
    while (*m_Next != '\0' && *m_Next != ']') {
      const char kind = *m_Next == '[' ? m_Next[1] : '\0';
      ++m_Next;
      if (kind == ':' || kind == '.' || kind == '=') {
        const std::array<char, 3> closing = {kind, ']', '\0'};
        const char* const end = std::strstr(m_Next + 1, closing.data());
        m_Next = end == nullptr ? m_Next : end + 2;
      }
    }
  }

  void Skip(char byte) { m_Next += *m_Next == byte ? 1 : 0; }

  const char* m_Next;
  std::size_t m_Depth = 0;
  bool m_Stray = false;
};

/// Whether the pattern begins with ".*", and that is not repeated in turn.
bool BeginsWithAnything(const std::string& pattern) {
  return pattern.rfind(".*", 0) == 0 && pattern.find_first_of("*+?{", 2) != 2;
}

/// Whether the pattern may be put into parentheses: a closing one that stands for itself would then close them.
bool CanBeGrouped(const std::string& pattern) {
  Reader reader(pattern.c_str());
  reader.EveryAlternative('^');
  return !reader.HasStrayParenthesis();
}

} // namespace

bool IsAnchored(const std::string& pattern) {
  return Reader(pattern.c_str()).EveryAlternative('^');
}

std::optional<std::string> Anchored(const std::string& pattern, bool narrow) {
  const bool narrowed = narrow && Reader(pattern.c_str()).EveryAlternative('/');
  std::string anchored;
  if (pattern.find('|') == std::string::npos && (narrowed || BeginsWithAnything(pattern))) {
    anchored = "^" + pattern;
  } else if (CanBeGrouped(pattern)) {
    anchored = (narrowed ? "^(" : "^.*(") + pattern + ")";
  }
  if (anchored.empty() || !IsAnchored(anchored) || !Perenna::RegularExpression(anchored).valid()) {
    return std::nullopt;
  }
  return anchored;
}

} // namespace AccessDirectory
