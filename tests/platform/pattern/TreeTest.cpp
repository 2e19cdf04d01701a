// What a pattern says: the C library is the measure.

#include <algorithm>
#include <random>
#include <string>
#include <tuple>

#include <gtest/gtest.h>
#include <regex.h>

#include "platform/pattern/Begin.h"
#include "platform/pattern/Tree.h"

using namespace Perenna::Pattern;

namespace {

/// The bytes that match when they are the whole text.
CharacterSet MatchedBytes(const regex_t& regex) {
  CharacterSet matched;
  for (unsigned byte = 1; byte < matched.size(); ++byte) {
    const char text[2] = {static_cast<char>(byte), '\0'};
    matched.set(byte, regexec(&regex, text, 0, nullptr, 0) == 0);
  }
  return matched;
}

} // namespace

TEST(PatternTree, TakesWhatTheLibraryTakes) {
  const char* const parts[] = {"a",       "(",       ")",    "*",       "+",         "?",   "{",   "}",   "{1}",
                               "{2,}",    "{,2}",    "{0}",  "{,}",     ",",         "0",   "|",   "^",   "$",
                               ".",       "[",       "]",    "[a",      "-",         "^]",  "[^",  "---", "[:alpha:]",
                               "[=a=]",   "[.-.]",   "[:",   "\\",      "\\1",       "\\2", "/",   "\\b", "\\<",
                               "\\`",     "\\w",     "\\W",  "\\s",     "\\S",       "\\0", "\\,", "\n",  "z",
                               "[[:x:]]", "{32768}", "\xff", "{1\\,3}", "{\\0,\\01}"};
  constexpr unsigned Seed = 1;
  std::mt19937 random(Seed); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same every time
  int taken = 0;
  for (int round = 0; round < 20000; ++round) {
    std::string pattern;
    for (auto length = random() % 7 + 1; length > 0; --length) {
      pattern += parts[random() % std::size(parts)];
    }
    const Tree tree = Tree::Read(pattern);
    regex_t regex;
    const bool takes = regcomp(&regex, pattern.c_str(), REG_EXTENDED | REG_NEWLINE) == 0;
    ASSERT_EQ(tree.GetFault() == Fault::None, takes) << pattern;
    if (takes) {
      ++taken;
      EXPECT_EQ(tree.Groups(), regex.re_nsub) << pattern;
      const Node& root = tree[tree.Root()];
      if (root.kind == Kind::Set || root.kind == Kind::Literal) {
        EXPECT_EQ(tree.Characters(root), MatchedBytes(regex)) << pattern;
      }
      regfree(&regex);
    }
  }
  EXPECT_GT(taken, 1000);
  for (const char* const name :
       {"alnum", "alpha", "blank", "cntrl", "digit", "graph", "lower", "print", "punct", "space", "upper", "xdigit"}) {
    regex_t regex;
    const std::string list = std::string("[[:") + name + ":]]";
    ASSERT_EQ(regcomp(&regex, list.c_str(), REG_EXTENDED | REG_NEWLINE), 0);
    const Tree tree = Tree::Read(list);
    EXPECT_EQ(tree.Characters(tree[tree.Root()]), MatchedBytes(regex)) << list;
    regfree(&regex);
  }
}

TEST(PatternTree, LiteralBeginningAndTopAlternatives) {
  const std::tuple<const char*, const char*, std::size_t> cases[] = {{"^/articles(/|$)", "/articles", 1},
                                                                     {"^/a\\.b*", "/a.", 1},
                                                                     {"^/ab?", "/a", 1},
                                                                     {"^/a[b]", "/a", 1},
                                                                     {"/a", "", 1},
                                                                     {"^/a|/b", "", 2},
                                                                     {"^(/a)", "", 1},
                                                                     {"^", "", 1},
                                                                     {"a||(b|c)", "", 3},
                                                                     {"^/a\\b", "/a", 1},
                                                                     {"^/a+(", "", 1},
                                                                     {"", "", 1},
                                                                     {"^a{0}b", "", 1}};
  for (const auto& [pattern, beginning, alternatives] : cases) {
    const Tree tree = Tree::Read(pattern);
    EXPECT_EQ(tree.LiteralBeginning(), beginning) << pattern;
    EXPECT_EQ(tree.TopAlternatives().size(), alternatives) << pattern;
  }
}

TEST(PatternTree, HasLimits) {
  const auto fault = [](const std::string& pattern) { return Tree::Read(pattern).GetFault(); };
  EXPECT_EQ(fault("(ab)" + std::string(499, '*')), Fault::None);
  EXPECT_EQ(fault("(ab)" + std::string(500, '*')), Fault::TooDeep);
  EXPECT_EQ(fault("(a" + std::string(300, '*') + "b)" + std::string(300, '*')), Fault::TooDeep);
  EXPECT_EQ(fault("(a)()()()()()()()()\\9"), Fault::None);
  EXPECT_EQ(fault("(a)()()()()()()()\\9"), Fault::Malformed);
  EXPECT_EQ(fault(std::string(199999, 'a')), Fault::None); // with their concatenation
  EXPECT_EQ(fault(std::string(200000, 'a')), Fault::TooLong);
}

TEST(PatternTree, EscapesHaveTheirPlaces) {
  const Tree tree = Tree::Read("a\\d[\\w]\\1");
  const auto& escapes = tree.Escapes();
  ASSERT_EQ(escapes.size(), 3U);
  EXPECT_TRUE(escapes[0].byte == 'd' && escapes[0].span.begin == 1 && escapes[0].span.end == 3);
  EXPECT_TRUE(escapes[1].byte == 'w' && escapes[1].in_bracket_list);
  EXPECT_EQ(tree.GetFault(), Fault::Malformed); // there is no group 1
  EXPECT_EQ(tree.End(), 8U);
}

TEST(PatternBegin, NeverContradictsTheLibrary) {
  const char* const parts[] = {"/",  "a",   "b",   "/a", "\\.", "\\d",  "\\w", "\\b",   "[ab]", "[^/]", "*", "+",
                               "?",  "{2}", "{0}", "{",  "|",   "(",    ")",   "(a|b)", "()",   "^",    "$", ".",
                               "\n", "\\1", "\\(", "a?", "a*",  "(^a)", "]",   "[",     "\\",   "\xc3"};
  const char* const texts[] = {"/", "a", "b", "/a", ".", "\\", "d", "\n", "\xc3", "(", "^", "{", "2", ""};
  constexpr unsigned Seed = 1;
  std::mt19937 random(Seed); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same every time
  int decided = 0;
  int shortened = 0;
  for (int round = 0; round < 20000; ++round) {
    std::string pattern = random() % 8 == 0 ? "" : "^";
    for (auto length = random() % 7; length > 0; --length) {
      pattern += parts[random() % std::size(parts)];
    }
    regex_t regex;
    const bool compiles = regcomp(&regex, pattern.c_str(), REG_EXTENDED | REG_NEWLINE) == 0;
    for (int tries = 0; tries < 5; ++tries) {
      std::string text = pattern.substr(pattern.empty() ? 0 : 1, random() % 6); // it may begin as the pattern does
      text.erase(std::remove(text.begin(), text.end(), '\\'), text.end());
      for (auto length = random() % 5; length > 0; --length) {
        text += texts[random() % std::size(texts)];
      }
      const Beginning beginning = CompareBeginning(pattern, text);
      if (beginning.differs) {
        ++decided;
        ASSERT_TRUE(compiles && regexec(&regex, text.c_str(), 0, nullptr, 0) == REG_NOMATCH)
            << pattern << " on " << text;
      } else if (beginning.pattern_bytes > 0) {
        ++shortened;
        const std::string rest = "^" + pattern.substr(beginning.pattern_bytes);
        regex_t left;
        ASSERT_EQ(regcomp(&left, rest.c_str(), REG_EXTENDED | REG_NEWLINE), 0) << pattern;
        const int status = regexec(&left, text.c_str() + beginning.text_bytes, 0, nullptr, 0);
        regfree(&left);
        ASSERT_TRUE(compiles && regexec(&regex, text.c_str(), 0, nullptr, 0) == status) << pattern << " on " << text;
      }
    }
    if (compiles) {
      regfree(&regex);
    }
  }
  EXPECT_GT(decided, 2000);
  EXPECT_GT(shortened, 4000);
  const auto differs = [](const char* pattern, const char* text) { return CompareBeginning(pattern, text).differs; };
  EXPECT_TRUE(differs("^/a/(b|c)", "/b/a") && differs("^/a\\.b$", "/axb"));
  EXPECT_FALSE(differs("^/a", "/ab") || differs("^/a|/b", "/b") || differs("^b", "a\nb"));
  EXPECT_FALSE(differs("^/a(", "/b") || differs("^x.*a.{4000}b", "/b")); // to be reported
  EXPECT_EQ(CompareBeginning("^/a/[0-9]+$", "/a/b").pattern_bytes, 4U);
  EXPECT_EQ(CompareBeginning("^/a/b?c", "/a/c").pattern_bytes, 4U);
}
