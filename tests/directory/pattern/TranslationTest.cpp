// Languages of patterns: the C library is the measure.

#include <cstdlib>
#include <random>

#include <regex.h>

#include <gtest/gtest.h>

#include "directory/pattern/Translation.h"
#include "platform/pattern/Cost.h"

namespace AccessDirectory {

namespace {

using Random = std::mt19937;

/// How many pairs of a pattern and a text are compared; PERENNA_PATTERN_PAIRS asks for more.
int WantedPairs() {
  const char* const wanted = std::getenv("PERENNA_PATTERN_PAIRS"); // NOLINT(concurrency-mt-unsafe): nothing changes it
  return wanted == nullptr ? 40000 : std::stoi(wanted);
}

std::string Any(Random& random, std::initializer_list<const char*> of) {
  return of.begin()[random() % of.size()];
}

std::string RandomPattern(Random& random, int depth) {
  switch (depth == 0 ? random() % 4 : random() % 8) {
  case 0:
  case 1:
    return Any(random, {"a", "b", "/", "/a", "\\.", "-", "^", "$", "\\`", "\\'", "()"});
  case 2:
    return Any(random, {".", "[ab]", "[^/]", "[^a]", "\\w", "\\W", "\\S", "\\s", "[]-]", "[^]^-]", "[[:alpha:]/]"});
  case 3:
    return Any(random, {"^", "$", "a", "/", "(/|$)", "(^|/)", "[!-~]", "[[-^]"});
  case 4:
    return "(" + RandomPattern(random, depth - 1) + ")";
  case 5:
    return "(" + RandomPattern(random, depth - 1) + "|" + RandomPattern(random, depth - 1) + ")";
  case 6:
    return "(" + RandomPattern(random, depth - 1) + ")" + Any(random, {"*", "+", "?", "{2}", "{0,2}", "{2,}", "{0}"});
  default:
    return RandomPattern(random, depth - 1) + RandomPattern(random, depth - 1);
  }
}

std::string RandomText(Random& random) {
  std::string text;
  for (auto length = random() % 6 + 1; length > 0; --length) {
    text += "aaabb//.-]^[~!Z"[random() % 15];
  }
  return text;
}

} // namespace

TEST(Translation, IsWhatTheLibraryMatches) {
  constexpr unsigned Seed = 15;
  constexpr int TextsOfAPattern = 100;
  Random random(Seed); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same every time
  int exact = 0;
  int patterns = 0;
  for (int pairs = WantedPairs(); pairs > 0; ++patterns) {
    std::string pattern = RandomPattern(random, 3);
    if (random() % 4 == 0) {
      pattern += "|" + RandomPattern(random, 2);
    }
    const Translation translation = Translate(pattern);
    if (!translation.language) {
      continue;
    }
    ++exact;
    regex_t regex;
    const bool compiles = regcomp(&regex, pattern.c_str(), REG_EXTENDED | REG_NEWLINE) == 0;
    for (int i = 0; i < TextsOfAPattern; ++i, --pairs) {
      std::string text = RandomText(random);
      if (i == 0 && !translation.language->Example(text)) {
        text = "a";
      }
      const bool matches = compiles && regexec(&regex, text.c_str(), 0, nullptr, 0) == 0;
      ASSERT_EQ(translation.language->Accepts(text), matches) << "seed " << Seed << ": " << pattern << " on " << text;
    }
    if (compiles) {
      regfree(&regex);
    }
  }
  EXPECT_GT(exact, patterns / 3);
}

TEST(Translation, SaysWhatItLeavesOut) {
  const std::pair<const char*, const char*> cases[] = {{"(^/)+a", "anchor"},
                                                       {"a\\b", "words"},
                                                       {"\\<a", "words"},
                                                       {"(a)\\1", "back-reference"},
                                                       {"[[.a.]]", "collating"},
                                                       {"[[=a=]]", "collating"},
                                                       {"((a{1,99}){1,99}){1,99}", "too much"}};
  for (const auto& [pattern, obstacle] : cases) {
    const Translation translation = Translate(pattern);
    ASSERT_FALSE(translation.language) << pattern;
    EXPECT_NE(std::string(translation.obstacle).find(obstacle), std::string::npos) << pattern;
  }
  for (const char* const pattern : {"", "a**{", "(", "[^!-~]"}) {
    ASSERT_TRUE(Translate(pattern).language) << pattern;
    EXPECT_TRUE(Translate(pattern).language->IsNothing()) << pattern;
  }
}

} // namespace AccessDirectory
