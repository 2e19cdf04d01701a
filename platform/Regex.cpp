#include "PN_Regex.h"

#include <array>
#include <cerrno>
#include <cstdio>

#include <locale.h> // NOLINT(modernize-deprecated-headers): newlocale and uselocale are POSIX, not C++

#include "TN_log.h"
#include "platform/pattern/Begin.h"
#include "platform/pattern/Cost.h"

namespace Perenna {

namespace {

constexpr std::size_t ErrorTextBytes = 512;

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
  if (pattern.c_str()[0] != '\0') {
    const Pattern::Judgement judgement = Pattern::Judge(pattern);
    Compile(pattern.c_str(), pattern.c_str(), judgement.refusal, judgement.malformed);
  }
}

RegularExpression::RegularExpression(const std::string& pattern, const char* text) : m_rest(text) {
  const char* const source = pattern.c_str();
  const Pattern::Beginning beginning = Pattern::CompareBeginning(source, text);
  if (beginning.differs || *source == '\0') {
    return;
  }
  if (beginning.pattern_bytes == 0) {
    const Pattern::Judgement judgement = Pattern::Judge(pattern);
    Compile(source, source, judgement.refusal, judgement.malformed);
    return;
  }
  m_rest += beginning.text_bytes;
  Compile(source, ("^" + pattern.substr(beginning.pattern_bytes)).c_str(), nullptr, false);
}

void RegularExpression::Compile(const char* pattern, const char* source, const char* refusal, bool malformed) {
  const CLocale locale;
  bool out_of_memory = false;
  int status = 0;
  if (refusal == nullptr) {
    status = WatchingMemory(out_of_memory, [&] { return regcomp(&m_regex, source, REG_EXTENDED | REG_NEWLINE); });
    if (status == 0 && out_of_memory) { // compiled, but perhaps not whole
      regfree(&m_regex);
      status = REG_ESPACE;
    } else if (status == 0 && malformed) { // its cost is not known, then
      regfree(&m_regex);
      refusal = "it is not understood";
    }
  }
  m_regex_init = refusal == nullptr && status == 0;
  m_undecided = refusal != nullptr || status == REG_ESPACE || out_of_memory;
  if (!m_regex_init) {
    std::array<char, ErrorTextBytes> explanation{};
    if (refusal != nullptr) {
      (void)std::snprintf(explanation.data(), explanation.size(), "too costly: %s", refusal);
    } else {
      regerror(status, nullptr, explanation.data(), explanation.size());
    }
    Tarn::DefaultLogSink().Error("regex init failed for expression \"%s\": %s\n", pattern, explanation.data());
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
