#include "PN_Regex.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <vector>

#include <locale.h> // NOLINT(modernize-deprecated-headers): newlocale and uselocale are POSIX, not C++

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

/// Puts this thread into the C locale for a scope. In a multibyte locale a "." passes over bytes that are no character,
/// so that "^/f/.+$" would miss a URL that a "Deny" is meant for, and matching is several times slower.
class CLocale {
public:
  CLocale() noexcept : m_Previous(uselocale(Locale())) {}
  ~CLocale() { uselocale(m_Previous); }
  CLocale(const CLocale&) = delete;
  CLocale& operator=(const CLocale&) = delete;

private:
  static locale_t Locale() noexcept {
    // Never freed: objects may be tested while the process ends.
    static const locale_t c_locale = newlocale(LC_ALL_MASK, "C", nullptr);
    TN_REQUIRE(c_locale != nullptr, "the C locale is there");
    return c_locale;
  }

  locale_t m_Previous;
};

/// Calls into the C library and tells whether memory ran out meanwhile: the matcher reports that as no match, the
/// compiler at times not at all.
template <class Call> int WatchingMemory(bool& ran_out, Call call) noexcept {
  const int kept = errno;
  errno = 0;
  const int status = call();
  ran_out = errno == ENOMEM;
  errno = kept;
  return status;
}

} // namespace

RegularExpression::RegularExpression(const std::string& pattern) {
  const char* const text = pattern.c_str();
  if (*text == '\0') {
    return;
  }
  const CLocale locale;
  const int refusal = PatternLimits::Check(text);
  bool out_of_memory = false;
  int status = refusal;
  if (refusal == 0) {
    status = WatchingMemory(out_of_memory, [&] { return regcomp(&m_regex, text, REG_EXTENDED | REG_NEWLINE); });
    if (status == 0 && out_of_memory) { // compiled, but perhaps not whole
      regfree(&m_regex);
      status = REG_ESPACE;
    }
  }
  m_regex_init = status == 0;
  m_undecided = refusal != 0 || status == REG_ESPACE || out_of_memory;
  if (!m_regex_init) {
    std::array<char, ErrorTextBytes> explanation{};
    regerror(status, nullptr, explanation.data(), explanation.size());
    Tarn::DefaultLogSink().Error("regex init failed for expression \"%s\": %s\n", text, explanation.data());
  }
}

RegularExpression::~RegularExpression() {
  if (m_regex_init) {
    regfree(&m_regex);
  }
}

RegularExpression::Outcome RegularExpression::Test(const char* text) const noexcept {
  if (!m_regex_init || m_undecided) {
    return m_undecided ? Outcome::Undecided : Outcome::NoMatch;
  }
  const CLocale locale;
  bool out_of_memory = false;
  const int status = WatchingMemory(out_of_memory, [&] { return regexec(&m_regex, text, 0, nullptr, 0); });
  if (out_of_memory) {
    return Outcome::Undecided;
  }
  return status == 0 ? Outcome::Match : Outcome::NoMatch;
}

bool RegularExpression::match(const std::string& text, std::size_t& begin, std::size_t& end) const noexcept {
  const CLocale locale;
  regmatch_t whole{};
  if (!m_regex_init || regexec(&m_regex, text.c_str(), 1, &whole, 0) != 0) {
    return false;
  }
  begin = static_cast<std::size_t>(whole.rm_so);
  end = static_cast<std::size_t>(whole.rm_eo);
  return true;
}

} // namespace Perenna
