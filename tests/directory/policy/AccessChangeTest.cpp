// What becomes allowed: no target that is tried says otherwise.

#include <random>

#include <gtest/gtest.h>

#include "directory/policy/AccessChange.h"

namespace AccessDirectory {

namespace {

/// All targets of up to four pieces.
std::vector<std::string> SomeTargets() {
  std::vector<std::string> targets = {"/"};
  for (std::size_t i = 0; i < targets.size() && targets.size() < 2000; ++i) {
    for (const char* const piece : {"a", "b", ".png", "/"}) {
      const std::string& before = targets[i];
      if (*piece != '/' || before.back() != '/') {
        targets.push_back(before + piece);
      }
    }
  }
  return targets;
}

} // namespace

TEST(AccessChange, IsFoundWhereThereIsOne) {
  Patterns patterns;
  for (const char* const pattern : {"^/", "^/a", "^/a(/|$)", "^/a/b", "^/b", "[.]png$", "/b$", "^/(a|b)/",
                                    "^/a/.*[.]png$", "^/[^/]*$", "b/", "^/a$"}) {
    patterns.Add(pattern);
  }
  auto random_rules = [&patterns, random = std::mt19937(7)]() mutable { // NOLINT(cert-msc32-c,cert-msc51-cpp)
    Rules rules;
    for (PatternNumber pattern = 0; pattern < patterns.Count(); ++pattern) {
      const auto chance = random() % 8;
      if (chance < 4) {
        (chance < 3 ? rules.allows : rules.denies).push_back(pattern);
      }
    }
    rules.in_doubt = random() % 20 == 0;
    return rules;
  };
  const TargetRules targets;
  Solver solver(patterns, targets);
  const std::vector<std::string> tried = SomeTargets();
  int gains = 0;
  for (int round = 0; round < 150; ++round) {
    const Rules with = random_rules();
    const Rules without = random_rules();
    const Answer answer = FindGain(with, without, patterns, solver);
    ASSERT_NE(answer.kind, Answer::Kind::Unknown) << answer.text;
    gains += answer.kind == Answer::Kind::Witness ? 1 : 0;
    for (const std::string& target : tried) {
      const bool gained = with.Allow(patterns, target) && !without.Allow(patterns, target);
      ASSERT_TRUE(!gained || answer.kind == Answer::Kind::Witness) << "round " << round << ": " << target;
    }
  }
  EXPECT_GT(gains, 20);
  EXPECT_LT(gains, 140);
}

} // namespace AccessDirectory
