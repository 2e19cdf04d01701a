#include "PN_Regex.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

#include "TN_log.h"

namespace Perenna {

namespace {

constexpr std::size_t ErrorTextBytes = 512;
constexpr std::size_t MaximumDepth = 250;
constexpr std::size_t MaximumElements = 100000;
constexpr std::size_t MaximumChoices = 3000;

/// Walks a pattern without judging its syntax and adds up what the C library would build from it: repetition counts
/// multiply what they repeat. Where a pattern is malformed the estimate may be off; `regcomp` then refuses it.
class PatternLimits {
public:
  /// 0, or the code of <regex.h> that a pattern is refused with before `regcomp` sees it.
  static int Check(const char* pattern) {
    // Nearly every pattern is short, repeats nothing by number and refers to nothing: no need for the walk.
    if (!NeedsWalk(pattern)) {
      return 0;
    }
    PatternLimits limits;
    while (*pattern != '\0' && limits.m_Refusal == 0) {
      limits.Take(pattern);
      limits.CheckSize();
    }
    return limits.m_Refusal;
  }

private:
  static bool NeedsWalk(const char* pattern) {
    const char* position = pattern;
    for (; *position != '\0'; ++position) {
      if (*position == '{' || (*position == '\\' && position[1] >= '1' && position[1] <= '9')) {
        return true;
      }
    }
    return static_cast<std::size_t>(position - pattern) > MaximumDepth;
  }

  /// Elements, and those among them that a match may leave out or choose between: the C library's memory grows with
  /// the former and with the square of the latter.
  struct Size {
    std::size_t elements = 0;
    std::size_t choices = 0;

    Size& operator+=(const Size& other) {
      elements += other.elements;
      choices += other.choices;
      return *this;
    }
  };

  /// An open group: what it holds up to its last atom, and that atom, which a repetition multiplies.
  struct Group {
    Size before;
    Size last;
  };

  void Take(const char*& pattern) {
    switch (*pattern) {
    case '(':
      ++pattern;
      m_Open.emplace_back();
      return;
    case ')':
      ++pattern;
      EndGroup();
      return;
    case '[':
      SkipBracketList(pattern);
      AddAtom({1, 0});
      return;
    case '{':
      Repeat(pattern);
      return;
    case '*':
    case '+':
    case '?':
      ++pattern;
      m_Open.back().last.choices += 1;
      return;
    case '|':
      ++pattern;
      AddAtom({1, 1});
      return;
    case '\\':
      // POSIX leaves references in extended expressions undefined; in the C library they can overrun the stack.
      if (pattern[1] >= '1' && pattern[1] <= '9') {
        m_Refusal = REG_ESUBREG;
      }
      pattern += pattern[1] != '\0' ? 2 : 1;
      AddAtom({1, 0});
      return;
    default:
      ++pattern;
      AddAtom({1, 0});
    }
  }

  void CheckSize() {
    Size total;
    for (const Group& group : m_Open) {
      total += group.before;
      total += group.last;
    }
    if (m_Open.size() - 1 > MaximumDepth || total.elements > MaximumElements || total.choices > MaximumChoices) {
      m_Refusal = REG_ESIZE;
    }
  }

  void AddAtom(const Size& size) {
    Group& group = m_Open.back();
    group.before += group.last;
    group.last = size;
  }

  void EndGroup() {
    if (m_Open.size() == 1) {
      AddAtom({1, 0}); // a literal parenthesis, or malformed
      return;
    }
    Size inner = m_Open.back().before;
    inner += m_Open.back().last;
    const bool empty = inner.elements == 0;
    inner += {1, empty ? 1U : 0U};
    m_Open.pop_back();
    AddAtom(inner);
  }

  /// Reads a bound, as far as it matters here; false where there is no digit.
  static bool ReadBound(const char*& position, std::size_t& bound) {
    const char* const first = position;
    for (bound = 0; *position >= '0' && *position <= '9'; ++position) {
      bound = std::min<std::size_t>(bound * 10 + static_cast<std::size_t>(*position - '0'), MaximumElements + 1);
    }
    return position != first;
  }

  /// "{n}", "{n,}", "{,m}" or "{n,m}" after an atom. The copies beyond the lower bound are choices; an unlimited
  /// bound adds one. The atom keeps its product, since bounds may follow bounds.
  void Repeat(const char*& pattern) {
    const char* position = pattern + 1;
    std::size_t lower = 0;
    ReadBound(position, lower);
    std::size_t upper = lower;
    if (*position == ',' && !ReadBound(++position, upper)) {
      upper = lower + 1;
    }
    if (*position != '}') {
      ++pattern; // a literal brace, or malformed
      AddAtom({1, 0});
      return;
    }
    pattern = position + 1;
    // All factors are at most MaximumElements + 2: the products cannot overflow.
    Size& last = m_Open.back().last;
    const std::size_t copies = std::max<std::size_t>({lower, upper, 1});
    const std::size_t optional = upper > lower ? upper - lower : 0;
    last = {std::max<std::size_t>(last.elements, 1) * copies, last.choices * copies + last.elements * optional};
  }

  // A "]" that comes first, and one inside "[: :]", "[. .]" or "[= =]", does not end the list.
  static void SkipBracketList(const char*& pattern) {
    ++pattern;
    if (*pattern == '^') {
      ++pattern;
    }
    if (*pattern == ']') {
      ++pattern;
    }
    while (*pattern != '\0' && *pattern != ']') {
      if (pattern[0] == '[' && (pattern[1] == ':' || pattern[1] == '.' || pattern[1] == '=')) {
        const std::array<char, 3> closing = {pattern[1], ']', '\0'};
        const char* const end = std::strstr(pattern + 2, closing.data());
        if (end != nullptr) {
          pattern = end + 2;
          continue;
        }
      }
      ++pattern;
    }
    if (*pattern == ']') {
      ++pattern;
    }
  }

  std::vector<Group> m_Open{1};
  int m_Refusal = 0;
};

} // namespace

RegularExpression::RegularExpression(const std::string& pattern) {
  const char* const text = pattern.c_str();
  if (*text == '\0') {
    return;
  }
  const int refusal = PatternLimits::Check(text);
  const int status = refusal != 0 ? refusal : regcomp(&m_regex, text, REG_EXTENDED | REG_NEWLINE);
  m_regex_init = status == 0;
  if (!m_regex_init) {
    std::array<char, ErrorTextBytes> explanation{};
    regerror(status, refusal != 0 ? nullptr : &m_regex, explanation.data(), explanation.size());
    Tarn::DefaultLogSink().Error("regex init failed for expression \"%s\": %s\n", text, explanation.data());
  }
}

RegularExpression::~RegularExpression() {
  if (m_regex_init) {
    regfree(&m_regex);
  }
}

bool RegularExpression::match(const char* text) const noexcept {
  return m_regex_init && regexec(&m_regex, text, 0, nullptr, 0) == 0;
}

bool RegularExpression::match(const std::string& text, std::size_t& begin, std::size_t& end) const noexcept {
  regmatch_t whole{};
  if (!m_regex_init || regexec(&m_regex, text.c_str(), 1, &whole, 0) != 0) {
    return false;
  }
  begin = static_cast<std::size_t>(whole.rm_so);
  end = static_cast<std::size_t>(whole.rm_eo);
  return true;
}

} // namespace Perenna
