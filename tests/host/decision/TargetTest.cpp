// Which spellings of a target are judged: the one that filter, proxy and application read alike.

#include "host/http/Target.h"

#include <random>

#include <gtest/gtest.h>

#include "directory/Failure.h"
#include "host/http/TargetRules.h"

namespace Host {

namespace {

constexpr std::string_view Allowed = "-"; // in the place of a fault

TEST(Target, IsTakenInNormalFormAlone) {
  const struct {
    const char* target;
    const char* fault; // a part of it
  } cases[] = {
      {"/", "-"},
      {"/articles/", "-"},
      {"/a-._~!$&'()*+,=:@/b%20c%C3%A9%5B?q=/../%2e&x=;", "-"},
      {"/...", "-"},
      {"/.hidden/a..b/..c", "-"},
      {"", "begin"},
      {"articles", "begin"},
      {"*", "begin"},
      {"?q", "begin"},
      {"http://site/articles", "begin"},
      {"site:443", "begin"},
      {"//articles", "empty"},
      {"/articles//7", "empty"},
      {"/articles//", "empty"},
      {"/..", "\"..\""},
      {"/a/../b", "\"..\""},
      {"/a/./b", "\"..\""},
      {"/a/..", "\"..\""},
      {"/%2e%2e/b", "upper-case"},
      {"/%2E%2E/b", "stands for itself"},
      {"/a%2Fb", "separates"},
      {"/a%5Cb", "separates"},
      {"/a%252Fb", "separates"},
      {"/a%3Fb", "separates"},
      {"/a%23b", "separates"},
      {"/a%3Bb", "separates"},
      {"/a%40b", "stands for itself"},
      {"/%61", "stands for itself"},
      {"/a%7Eb", "stands for itself"},
      {"/a%00b", "controls"},
      {"/a%7F", "controls"},
      {"/a%c3%a9", "upper-case"},
      {"/a%", "upper-case"},
      {"/a%4", "upper-case"},
      {"/a%G0", "upper-case"},
      {"/a;x=1", "\";\""},
      {"/a\\b", "has to be"},
      {"/a#b", "has to be"},
      {"/a b", "has to be"},
      {"/a\"b", "has to be"},
      {"/a\x01", "has to be"},
      {"/\xc3\xa9", "has to be"},
      {"/a?q#f", "query"},
      {"/a?q r", "query"},
      {"/a?\xc3\xa9", "query"},
      {"/a?q\x7f", "query"},
  };
  for (const auto& [target, fault] : cases) {
    const std::string found = TargetForm().Fault(target);
    EXPECT_TRUE(fault == Allowed ? found.empty() : found.find(fault) != std::string::npos) << target << ": " << found;
  }
  EXPECT_NE(TargetForm().Fault(std::string("/a\0b", 4)), "");
}

TEST(Target, MayHoldASpellingThatIsAllowedButNeverClimbs) {
  const TargetForm form({";", "%2F", "%40", "%25"});
  for (const char* const target : {"/a;v=1/b", "/queues/%2F/x", "/a%2F%2Fb", "/u%40x", "/100%25", "/a;/b"}) {
    EXPECT_EQ(form.Fault(target), "") << target;
    EXPECT_NE(TargetForm().Fault(target), "") << target;
  }
  for (const char* const target :
       {"/;x", "/a/;/b", "/..;x/b", "/.;x", "/a%2F..%2Fb", "/a%2F..", "/%2E%2E/b", "/..%2Fb", "/%252E%252E/b",
        "/a%252F%252e.%252Fb", "/%2525252525252525252e", "/a%5Cb", "/a%3Bb", "/a%00", "//", "/a%2f"}) {
    EXPECT_NE(form.Fault(target), "") << target;
  }
  for (const char* const spelling : {"", "%", "%2f", "%00", "%0A", "%7F", "%2E", "@", "%2F%2F", ";;"}) {
    EXPECT_THROW(TargetForm({spelling}), AccessDirectory::Failure) << spelling;
  }
}

TEST(Target, LanguageHoldsWhatIsAdmittedAndNothingElse) {
  const char* const pieces[] = {"/", "/", ".", "..", "a", ";", "%2F", "%5C", "%3B", "%40", "%20", "%c3", "?", "#", "*"};
  std::mt19937 random(3); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same every time
  for (const std::vector<std::string>& allows :
       {std::vector<std::string>{}, {";"}, {"%2F"}, {"%2F", ";"}, {"%5C", "%3B", "%40"}}) {
    const AccessDirectory::TargetRules rules = TargetRulesOf(true, allows);
    const AccessDirectory::Automaton language = AccessDirectory::TargetLanguage(rules);
    int admitted = 0;
    for (int i = 0; i < 4000; ++i) {
      std::string target = "/";
      for (auto length = random() % 7; length > 0; --length) {
        target += pieces[random() % std::size(pieces)];
      }
      EXPECT_EQ(language.Accepts(target), rules.admits(target)) << target << " " << allows.size();
      admitted += rules.admits(target) ? 1 : 0;
    }
    EXPECT_GT(admitted, 200);
  }
}

TEST(Target, SplitsAtTheFirstQuestionMark) {
  EXPECT_EQ(PathOf("/a?b?c"), "/a");
  EXPECT_EQ(QueryOf("/a?b?c"), "b?c");
  EXPECT_EQ(PathOf("/a"), "/a");
  EXPECT_EQ(QueryOf("/a"), "");
}

} // namespace

} // namespace Host
