#include "PN_Regex.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

#include "TN_log.h"

namespace Perenna {

namespace {

constexpr std::size_t ErrorTextBytes = 512;
constexpr std::size_t MaximumDepth = 250;
constexpr std::size_t MaximumElements = 100000;

/// Walks a pattern without judging its syntax and adds up what the C library would build from it: repetition counts
/// multiply what they repeat. Where a pattern is malformed the estimate may be off; `regcomp` then refuses it.
class SizeEstimate {
public:
  static bool TooBig(const char* pattern) {
    // Nearly every pattern repeats and nests too little to need the walk.
    const std::string_view text(pattern);
    if (text.size() <= MaximumDepth && text.find('{') == std::string_view::npos) {
      return false;
    }
    SizeEstimate estimate;
    while (*pattern != '\0') {
      if (!estimate.Take(pattern)) {
        return true;
      }
    }
    return false;
  }

private:
  struct Group {
    std::size_t before = 0; // elements of the group up to its last atom
    std::size_t last = 0;   // elements of that atom
    std::size_t size() const { return before + last; }
  };

  bool Take(const char*& pattern) {
    switch (*pattern) {
    case '(':
      ++pattern;
      m_Open.emplace_back();
      return m_Open.size() <= MaximumDepth;
    case ')':
      ++pattern;
      if (m_Open.size() > 1) {
        const std::size_t inner = m_Open.back().size() + 1;
        m_Open.pop_back();
        return AddAtom(inner);
      }
      return AddAtom(1);
    case '[':
      SkipBracketList(pattern);
      return AddAtom(1);
    case '{':
      return Repeat(pattern);
    case '\\':
      pattern += pattern[1] != '\0' ? 2 : 1;
      return AddAtom(1);
    default:
      ++pattern;
      return AddAtom(1);
    }
  }

  bool AddAtom(std::size_t elements) {
    Group& group = m_Open.back();
    group.before += group.last;
    group.last = elements;
    return Total() <= MaximumElements;
  }

  // "{n}", "{n,}" or "{n,m}" after an atom: the larger bound counts, an unlimited one as n + 1. The last atom keeps
  // its product, since bounds may follow bounds.
  bool Repeat(const char*& pattern) {
    char* position = nullptr;
    const char* const first = pattern + 1;
    unsigned long bound = std::strtoul(first, &position, 10);
    if (*position == ',') {
      const char* const second = position + 1;
      const unsigned long upper = std::strtoul(second, &position, 10);
      bound = position == second ? bound + 1 : std::max(bound, upper);
    }
    if (*position != '}') {
      ++pattern; // a literal brace
      return AddAtom(1);
    }
    pattern = position + 1;
    const std::size_t factor = std::min<std::size_t>(std::max(bound, 1UL), MaximumElements + 1);
    std::size_t& last = m_Open.back().last;
    last = std::max<std::size_t>(last, 1) * factor; // both at most MaximumElements + 1
    return Total() <= MaximumElements;
  }

  std::size_t Total() const {
    std::size_t total = 0;
    for (const Group& group : m_Open) {
      total += group.size();
    }
    return total;
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
};

} // namespace

RegularExpression::RegularExpression(const std::string& pattern) {
  const char* const text = pattern.c_str();
  if (*text == '\0') {
    return;
  }
  const bool too_big = SizeEstimate::TooBig(text);
  const int status = too_big ? REG_ESIZE : regcomp(&m_regex, text, REG_EXTENDED | REG_NEWLINE);
  m_regex_init = status == 0;
  if (!m_regex_init) {
    std::array<char, ErrorTextBytes> explanation{};
    regerror(status, too_big ? nullptr : &m_regex, explanation.data(), explanation.size());
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
