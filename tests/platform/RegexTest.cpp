// Regular expressions: matching, malformed and hostile patterns.

#include <malloc.h>

#include "Helpers.h"
#include "PN_Regex.h"
#include "support/HostileMachine.h"

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
      {"^" + Repeat("[^]{2000}[:alpha:](]", 200) + "$", std::string(200, '-'), true},
      {"^(/[A-Za-z0-9._-]{1,255}){1,16}$", "/" + std::string(255, 'a') + "/b", true},
      {"^/([^/]{1,255}/){0,12}[^/]{1,255}$", "/a/" + std::string(256, 'a'), false},
      {"^/[0-9a-f]{1,4096}$", "/" + std::string(4096, 'a'), true},
      {"^/([a-z]+)/\\1$", "/ab/ab", true},
      {"/([a-z]+)/\\1$", "/ab/ac", false},
      {"^/(\\b|\\B)*x", "/x", true}};
  Testing::CaptureLog log;
  for (const auto& [pattern, text, matches] : cases) {
    EXPECT_EQ(RegularExpression(pattern).match(text), matches) << pattern << " on " << text;
  }
  std::size_t begin = 77;
  std::size_t end = 77;
  EXPECT_TRUE(RegularExpression("b+").match(std::string("a\nabbcb"), begin, end) && begin == 3 && end == 5);
  errno = ERANGE;
  EXPECT_FALSE(RegularExpression("x").match(std::string("abbcb"), begin, end) || begin != 3 || end != 5);
  EXPECT_EQ(errno, ERANGE) << "is the caller's";
  EXPECT_EQ(log.Take(), Lines{});
}

TEST(RegularExpressions, GiveTheirMemoryBack) {
  constexpr std::size_t Patterns = 1000;
  const std::size_t before = mallinfo2().uordblks; // 0 under a sanitizer, which sees it itself
  for (std::size_t i = 0; i < Patterns; ++i) {
    EXPECT_TRUE(RegularExpression("^(/[a-z]+)*$").match("/articles"));
  }
  EXPECT_LT(mallinfo2().uordblks, before + 100 * Patterns);
}

TEST(RegularExpressions, AreInvalidAndLoggedWhereMemoryRunsOutAmidThem) {
  if (!Testing::FailingMemory::Available()) {
    GTEST_SKIP() << "a sanitizer brings its own allocations";
  }
  const std::string pattern = "(x|[y]*)*[/][x]";
  EXPECT_TRUE(RegularExpression(pattern).valid()); // what it costs is remembered: what fails is compiling it
  int count = 0;
  for (bool failed = true; failed;) {
    Testing::CaptureLog log;
    Testing::FailingMemory::FailAt(++count);
    const RegularExpression regex(pattern);
    Testing::FailingMemory::FailAt(0);
    failed = Testing::FailingMemory::Failed();
    EXPECT_EQ(regex.valid(), !failed) << count;
    EXPECT_EQ(log.Take().size(), failed ? 1U : 0U) << count;
  }
  EXPECT_GT(count, 20);
}

TEST(RegularExpressions, MalformedOnesAreLoggedOnceAndNeverMatch) {
  for (const char* pattern : {"(", "(a", "[a", "[[:no:]]", "[b-a]", "a{2,1}", "a{1,2", "a\\", "[[:", "%s%n("}) {
    regex_t raw;
    char reason[512] = "";
    regerror(regcomp(&raw, pattern, REG_EXTENDED | REG_NEWLINE), &raw, reason, sizeof(reason));
    ExpectRefused(pattern, reason, RegularExpression::Outcome::NoMatch);
  }
}

TEST(RegularExpressions, RuinousOnesAreNotCompiled) {
  const std::string deep = "its groups or repetitions stand too deep inside each other";
  const std::string long_one = "written out, its repetitions are too long";
  const std::string passed = "too much of it can be passed without matching a character, by repetitions inside "
                             "repetitions or by assertions";
  const std::string ways = "a text can match parts of it in too many ways at once";
  const std::string repeated = "a back-reference or the group that it names is repeated, or stands beside an empty "
                               "alternative";
  const std::string anywhere = "what a back-reference repeats can begin or end at too many places: let characters "
                               "stand before and behind it that it does not match";
  const std::pair<std::string, std::string> cases[] = {
      {Repeat("(", 1000000), deep},
      {Repeat("(", 251) + "a" + Repeat(")", 251), deep},
      {"a" + Repeat("*", 1000000), deep},
      {Repeat("a", 1000000), long_one},
      {Repeat("a{32767}", 4), long_one},
      {"((a{100})*{100})+{100}", long_one},
      {"(a{32767}b){32767}", long_one},
      {Repeat("(", 20) + "a" + Repeat(")+", 20), long_one},
      {Repeat("(", 200) + "a" + Repeat("{2})", 200) + "(", long_one}, // malformed only at its end
      {Repeat("a?", 30000), passed},
      {"a{0,32767}", passed},
      {"(" + Repeat("()", 10000) + ")*", passed},
      {"((\\b|\\B)(\\b|\\B))*a", passed},
      {"(^a?|$b?){10}*", passed},
      {Repeat("(^|$)", 40), passed},
      {Repeat("^", 1000), passed},
      {"(((a?))){2990}", passed},
      {"(" + Repeat("(a*|b*)", 24) + ")*", passed},
      {".*a(^a|b){37}z", ways}, // taken for "(a|b)" from the second on
      {".*a.{4000}b", ways},
      {"^[^a][ab]((\\w|)(b){7,739}\\w?)+$", ways}, // merges many lists below many nodes
      {"[ab]{1,1000}$", ways},                     // looks for "$" among 1,000 nodes at each byte
      {"(a|c)*a(a|c){2900}b", ways},
      {"(a|c)*a(.{1,9}){3}(\\b|\\B){10}.*a.*az", ways}, // takes out thousands of nodes, each by moving the others
      {"((..)*|(...)*|(.....)*|(.......)*|(...........)*)[ab]*a............c", ways},
      {"(|)(\\1\\1)*", repeated}, // overruns the stack
      {"((a)|)\\2", repeated},
      {"(a)\\1\\1\\1\\1\\1", "it has more than four back-references"},
      {"(a*)\\1", anywhere},
      {"(a*)/\\1x", anywhere}, // 7 s
      {"^/((a?b)+)/\\1$", anywhere},
      {"^/([a-z]+)b/\\1$", anywhere},
      {"(a)(b\\1" + Repeat("|b", 64) + ")", anywhere},
      {"^.*/([a-z]+)/\\1$", anywhere}};
  for (const auto& [pattern, reason] : cases) {
    ExpectRefused(pattern, "too costly: " + reason, RegularExpression::Outcome::Undecided);
  }
}
