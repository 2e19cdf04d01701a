// Regions: each target is in one, also where there were too many to cut.

#include <algorithm>

#include <gtest/gtest.h>

#include "directory/policy/Regions.h"

namespace AccessDirectory {

TEST(Regions, HoldEachTargetWhereverCuttingStopped) {
  Patterns patterns;
  std::vector<PatternNumber> all;
  for (const char* const pattern : {"^/a", "^/a(/|$)", "^/b$", "[.]png$", "^/(a|b)/", "^/[^/]*$", "\\ba", "/b"}) {
    all.push_back(patterns.Add(pattern));
  }
  const TargetRules rules;
  Solver solver(patterns, rules);
  Progress progress;
  for (const std::size_t maximum : {1, 3, 5, 1000}) {
    const Regions regions = CutIntoRegions(all, patterns, solver, progress, maximum);
    EXPECT_LE(regions.regions.size(), maximum);
    EXPECT_EQ(regions.left_out == 0, maximum == 1000);
    EXPECT_FALSE(regions.IsComplete()); // there is no automaton for "\b"
    for (const char* const target : {"/", "/a", "/a/b", "/ab.png", "/b", "/b/a.png", "/c/b", "/a/", "/x/y"}) {
      const auto holds = [&](const Region& region) {
        return std::all_of(all.begin(), all.end(), [&](PatternNumber pattern) {
          const auto& may = region.unknown;
          return std::find(may.begin(), may.end(), pattern) != may.end() ||
                 patterns.Matches(pattern, target) ==
                     (std::find(region.matched.begin(), region.matched.end(), pattern) != region.matched.end());
        });
      };
      const auto count = std::count_if(regions.regions.begin(), regions.regions.end(), holds);
      EXPECT_TRUE(count == 1 || (maximum < 1000 && count > 1)) << count << " hold " << target << " of " << maximum;
    }
  }
}

} // namespace AccessDirectory
