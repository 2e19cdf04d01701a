// What patterns say and their writers may not have meant, and the better pattern.

#include <random>

#include <gtest/gtest.h>

#include "PN_Regex.h"
#include "directory/lint/pattern/PatternFindings.h"
#include "support/Support.h"

namespace Testing {

namespace {

using AccessDirectory::ReadPattern;

std::string Kinds(const AccessDirectory::PatternReading& reading) {
  std::string kinds;
  for (const AccessDirectory::PatternFinding& finding : reading.findings) {
    EXPECT_NE(finding.why, "");
    EXPECT_TRUE(!finding.advice.empty() || !reading.better.empty()) << finding.kind->name;
    kinds += (kinds.empty() ? "" : " ") + std::string(finding.kind->name).substr(7); // behind "filter-"
  }
  return kinds;
}

} // namespace

TEST(PatternFindings, NameWhatIsOddAndMendItWithoutGrantingMoreOrRefusingLess) {
  struct Case {
    std::string pattern;
    std::string kinds;
    std::string allow; // the better pattern of an Allow, and of a Deny
    std::string deny;
  };
  const std::vector<Case> cases = {
      {"^/a(/|$)|^/b$", "", "", ""},
      {"^/[a-z]+\\.html$", "", "", ""},
      {"^(/a|/b)$", "", "", ""},
      // Other dialects.
      {"^/n/\\d+$", "escape", "^/n/[0-9]+$", "^/n/[0-9]+$"},
      {"^/n/\\x41$", "escape", "", ""},
      {"^/[\\d.]$", "escape", "^/[0-9.]$", "^/[0-9.]$"},
      {"^/[^\\]]$", "escape", "", ""},
      {"^/[\\-a]$", "escape", "", ""},
      {"^/[\\\\d]$", "", "", ""},
      {"^/[^\\/]$", "dialect", "^/[^/]$", "^/[^/]$"},
      {"^/\\w+\\b/$", "dialect dialect", "^/[[:alnum:]_]+\\b/$", "^/[[:alnum:]_]+\\b/$"},
      {"^/[0-9]+?$", "quantifier", "^/[0-9]+$", "^/[0-9]*$"},
      {"^/[0-9]{2}?$", "quantifier", "^/[0-9]{2}$", ""},
      {"^/a?+$", "quantifier", "^/a?$", ""},
      {"^/.*?x$", "dialect", "^/.*x$", "^/.*x$"},
      {"^/(?:a|(?:b))$", "construct", "^/(a|(b))$", "^/(a|(b))$"},
      {"^/(?:a)(b)\\1$", "construct", "", ""},
      {"(?i)^/a$", "construct", "", ""},
      {"^/(?!a)", "construct", "", ""},
      {"^/a(b", "", "", ""},
      {"^/(^a|b){2}$", "assertion", "", ""}, // matches "/ba"
      {"^/(^|b){2}$", "", "", ""},
      // Targets.
      {"^a/b$", "target", "^/a/b$", "^/a/b$"},
      {"^https?://h/a", "target", "", ""},
      {"^/a#b$|http://h/", "target", "", ""},
      {".*", "everything", "^/", "^.*"},
      {"^", "everything", "^/", ""},
      {"/", "everything", "^/", "^.*/"},
      {"[0-9]*", "everything", "^/", "^.*[0-9]*"},
      // Where it matches.
      {"/a$", "unanchored", "^/a$", "^.*/a$"},
      {"/a$|/b$", "unanchored", "^(/a$|/b$)", "^.*(/a$|/b$)"},
      {".*/a", "unanchored", "^.*/a", "^.*/a"},
      {"(^|/)a", "unanchored", "", ""},
      {"a)|b", "unanchored", "", ""},
      {"^/a$|/b$", "half-anchored", "^(/a$|/b$)", "^(/a$|.*/b$)"},
      {"^/a$|b$", "half-anchored", "", "^(/a$|.*b$)"},
      {"(^/a|/b)$", "half-anchored", "", ""},
      {"^/index.html$", "dot", "^/index\\.html$", ""},
      {"^/admin", "end", "^/admin([/?]|$)", ""},
      {"^/u/[0-9]+", "end", "^/u/[0-9]+([/?]|$)", ""},
      {"^/a|^/b", "end", "^/a([/?]|$)|^/b([/?]|$)", ""},
      {"/a.b|/\\d", "escape dot unanchored end", "^(/a\\.b|/[0-9])", "^.*(/a.b|/[0-9])"},
  };
  for (const Case& row : cases) {
    SCOPED_TRACE(row.pattern);
    const auto allow = ReadPattern(row.pattern, true, Perenna::METH_GET);
    EXPECT_EQ(Kinds(allow), row.kinds);
    EXPECT_EQ(allow.better, row.allow);
    EXPECT_EQ(ReadPattern(row.pattern, false, Perenna::METH_GET).better, row.deny);
    if (!allow.better.empty()) {
      const std::string left = Kinds(ReadPattern(allow.better, true, Perenna::METH_GET));
      EXPECT_TRUE(left.empty() || left == "end" || left == "dialect") << left;
    }
  }
  EXPECT_EQ(Kinds(ReadPattern("^\\*$", true, Perenna::METH_OPTIONS)), "");
  EXPECT_EQ(Kinds(ReadPattern("^host:443$", true, Perenna::METH_CONNECT)), "");
}

// What a pattern is said to be, held against what the C library makes of it.
TEST(PatternFindings, AgreeWithTheMatcherOnRandomPatterns) {
  const std::vector<std::string> pieces = {"^", "/", "a",  "b",    "|",   "(",   ")",   "*",     "+",  "?",
                                           ".", "$", "+?", "[]a]", "\\|", "\\1", "{0}", "{1,2}", "^/", "[\\/]"};
  const CaptureLog quiet; // most are malformed
  int rewritten = 0;
  for (unsigned seed = 0; seed < 12000; ++seed) {
    std::mt19937 random(seed);
    const auto text = [&random](const std::vector<std::string>& parts, unsigned most) {
      std::string made;
      for (auto left = random() % most + 1; left > 0; --left) {
        made += parts[random() % parts.size()];
      }
      return made;
    };
    const std::string pattern = text(pieces, 7);
    const Perenna::RegularExpression compiled(pattern);
    if (!compiled.valid()) {
      continue;
    }
    const auto allow = ReadPattern(pattern, true, Perenna::METH_GET);
    const bool never = Kinds(allow).find("target") != std::string::npos;
    const Perenna::RegularExpression narrow(never ? "" : allow.better);
    const Perenna::RegularExpression same(never ? "" : ReadPattern(pattern, false, Perenna::METH_GET).better);
    rewritten += same.valid() ? 1 : 0;
    for (int url_number = 0; url_number < 12; ++url_number) {
      const std::string url = "/" + text({"/", "a", "b", "|", ")"}, 5);
      const bool matches = compiled.match(url);
      const std::string trace =
          "seed " + std::to_string(seed) + ": " + pattern + " on " + url + ", better " + allow.better;
      EXPECT_TRUE(!same.valid() || same.match(url) == matches);
      EXPECT_TRUE(matches ? !never : !narrow.match(url));
      EXPECT_TRUE(matches || Kinds(allow).find("everything") == std::string::npos);
    }
  }
  EXPECT_GT(rewritten, 800);
}

} // namespace Testing
