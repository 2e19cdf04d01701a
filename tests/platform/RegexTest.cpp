// Regular expressions: matching, malformed and hostile patterns.

#include "Helpers.h"
#include "PN_Regex.h"

using Perenna::RegularExpression;
using Testing::Lines;
using Testing::Repeat;

/// Whether the pattern is refused, with one line in the log that gives the reason, and never matches.
static void ExpectRefused(const std::string& pattern, const std::string& reason, RegularExpression::Outcome outcome) {
  Testing::CaptureLog log;
  const RegularExpression regex(pattern);
  EXPECT_FALSE(regex.match("") || regex.match("aaaa") || regex.valid()) << pattern.substr(0, 60);
  EXPECT_EQ(regex.Test("aaaa"), outcome) << pattern.substr(0, 60);
  const std::string line = "regex init failed for expression \"" + pattern + "\": " + reason + "\n";
  EXPECT_EQ(log.Take(), (Lines{{Tarn::LOG_ERROR, line}}));
}

TEST(RegularExpressions, Match) {
  const std::tuple<std::string, std::string, bool> cases[] = {
      {"", "", false},
      {"b", "abc", true},
      {"^(/a|/b)+$", "/a/b/a", true},
      {"^(/a|/b)+$", "/a/b/c", false},
      {"a.c", "a\nc", false},
      {"a[^b]c", "a\nc", false},
      {"^b$", "a\nb\nc", true},
      {"b", std::string("a\0b", 3), false},
      {std::string("a\0(", 3), "a", true},
      {"^(" + Repeat("/a/department/[0-9]+|", 400) + "/last)$", "/last", true},
      {"^" + Repeat("long", 10000) + "$", Repeat("long", 10000), true},
      {Repeat("(", 250) + "a" + Repeat(")", 250), "a", true},
      {"^[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}$", "01234567-89ab-cdef-fedc-ba9876543210", true},
      {"^a{1000}$", std::string(1000, 'a'), true},
      {"^" + Repeat("\\(\\{[({9999})]", 300), Repeat("({{", 300), true},
      {"^" + Repeat("[^]{2000}[:alpha:](]", 200) + "$", std::string(200, '-'), true}};
  Testing::CaptureLog log;
  for (const auto& [pattern, text, matches] : cases) {
    EXPECT_EQ(RegularExpression(pattern).match(text), matches) << pattern << " on " << text;
  }
  std::size_t begin = 77;
  std::size_t end = 77;
  EXPECT_TRUE(RegularExpression("b+").match(std::string("a\nabbcb"), begin, end) && begin == 3 && end == 5);
  EXPECT_EQ(log.Take(), Lines{});
}

TEST(RegularExpressions, MalformedOnesAreLoggedOnceAndNeverMatch) {
  for (const char* pattern : {"(", "(a", "[a", "[[:no:]]", "[b-a]", "a{2,1}", "a{1,2", "a\\", "[[:", "%s%n("}) {
    regex_t raw;
    char reason[512] = "";
    regerror(regcomp(&raw, pattern, REG_EXTENDED | REG_NEWLINE), &raw, reason, sizeof(reason));
    ExpectRefused(pattern, reason, RegularExpression::Outcome::NoMatch);
  }
}

TEST(RegularExpressions, HostileOnesAreRefusedBeforeTheyExhaustTheStackOrMemory) {
  for (const std::string& pattern :
       {Repeat("(", 100000) + "a" + Repeat(")", 100000), Repeat("(", 1000000), Repeat("a{32767}", 4),
        Repeat("(", 251) + "a" + Repeat(")", 251), Repeat("(", 200) + "a" + Repeat("{2})", 200),
        std::string("((a{100})*{100})+{100}"), Repeat("a?", 30000), Repeat("a|", 30000), std::string("a{0,32767}"),
        "(" + Repeat("()", 10000) + ")*", std::string("(((a{255}){255}){255}){255}"),
        std::string("a{255}{255}{255}{255}"), std::string("x(([]a{](b|c{300}){1,300}){2,}){3}"),
        std::string("(a{32767}b){32767}")}) {
    ExpectRefused(pattern, "Regular expression too big", RegularExpression::Outcome::Undecided);
  }
  // The C library's matcher overruns the stack on these.
  ExpectRefused("(|)(\\1\\1)*", "Invalid back reference", RegularExpression::Outcome::Undecided);
}
