// Whether a pattern is anchored, and how it becomes so.

#include <random>

#include <gtest/gtest.h>

#include "PN_Regex.h"
#include "directory/lint/Anchoring.h"
#include "support/Support.h"

namespace Testing {

TEST(Anchoring, ReadsEveryAlternativeAndKeepsTheMeaning) {
  struct Case {
    std::string pattern;
    bool anchored;
    std::string wide;   // what matches the same
    std::string narrow; // what matches at the start, where that is safe to say
  };
  const std::vector<Case> cases = {
      {"^/a", true, "", ""},
      {"^/a|^/b", true, "", ""},
      {"(^/a|(^/b))c", true, "", ""},
      {"(^/a)+", true, "", ""},
      {"[)|]", false, "^.*([)|])", "^.*([)|])"},
      {"^[]|a]", true, "", ""},
      {"^[[:alpha:]|]x", true, "", ""},
      {"^\\|x", true, "", ""},
      {"/a", false, "^.*(/a)", "^/a"},
      {"/a|/b", false, "^.*(/a|/b)", "^(/a|/b)"},
      {"^/a|/b", false, "^.*(^/a|/b)", "^.*(^/a|/b)"},
      {"(^/a)?", false, "^.*((^/a)?)", "^.*((^/a)?)"},
      {"(^/a){0,1}", false, "^.*((^/a){0,1})", "^.*((^/a){0,1})"},
      {"(^|/)a", false, "^.*((^|/)a)", "^.*((^|/)a)"},
      {".*/a", false, "^.*/a", "^.*/a"},
      {".*{0}a", false, "^.*(.*{0}a)", "^.*(.*{0}a)"},
      {"a)", false, "", ""}, // stands for itself; in parentheses it would not
      {"^a)|b", false, "", ""},
  };
  for (const Case& row : cases) {
    EXPECT_EQ(AccessDirectory::IsAnchored(row.pattern), row.anchored) << row.pattern;
    if (!row.anchored) {
      EXPECT_EQ(AccessDirectory::Anchored(row.pattern, false).value_or(""), row.wide) << row.pattern;
      EXPECT_EQ(AccessDirectory::Anchored(row.pattern, true).value_or(""), row.narrow) << row.pattern;
    }
  }
}

// What a pattern is said to be, held against what the C library makes of it.
TEST(Anchoring, AgreesWithTheMatcherOnRandomPatterns) {
  const std::vector<std::string> pieces = {"^", "/", "a",    "b",    "|",   "(",   ")",   "*",     "+",  "?",
                                           ".", "$", "[^a]", "[]a]", "\\|", "\\(", "{0}", "{1,2}", "^/", "[[:alpha:]]"};
  const CaptureLog quiet; // most are malformed
  int anchored = 0;
  int rewritten = 0;
  for (unsigned seed = 0; seed < 15000; ++seed) {
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
    const bool is_anchored = AccessDirectory::IsAnchored(pattern);
    const auto wide = is_anchored ? std::nullopt : AccessDirectory::Anchored(pattern, false);
    const auto narrow = is_anchored ? std::nullopt : AccessDirectory::Anchored(pattern, true);
    anchored += is_anchored ? 1 : 0;
    rewritten += wide ? 1 : 0;
    for (int url_number = 0; url_number < 12; ++url_number) {
      const std::string url = "/" + text({"/", "a", "b", "|", ")"}, 5);
      std::size_t begin = 0;
      std::size_t end = 0;
      const bool matches = compiled.match(url, begin, end);
      EXPECT_TRUE(!is_anchored || !matches || begin == 0) << "seed " << seed << ": " << pattern << " on " << url;
      EXPECT_TRUE(!wide || Perenna::RegularExpression(*wide).match(url) == matches)
          << "seed " << seed << ": " << pattern << " became " << *wide << " on " << url;
      EXPECT_TRUE(!narrow || matches || !Perenna::RegularExpression(*narrow).match(url))
          << "seed " << seed << ": " << pattern << " became " << *narrow << " on " << url;
    }
  }
  EXPECT_GT(anchored, 200);
  EXPECT_GT(rewritten, 800);
}

} // namespace Testing
