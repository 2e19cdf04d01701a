// What the states of a matcher need, to six digits: a limit that patterns come to at some thousand repetitions shows a
// fault of the estimate in few of them. The numbers move only when the C library is measured anew.

#include <array>
#include <cstdio>
#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "platform/pattern/states/States.h"

using namespace Perenna::Pattern;

namespace {

constexpr std::size_t SubjectLength = 1000;
constexpr Needs Unlimited{std::numeric_limits<double>::infinity(), std::numeric_limits<double>::infinity()};

std::string Text(const Needs& needs) {
  std::array<char, 64> text{};
  (void)std::snprintf(text.data(), text.size(), "%.6g us, %.6g bytes", needs.seconds * 1e6, needs.bytes);
  return text.data();
}

} // namespace

TEST(PatternStates, NeedTimeAndMemory) {
  struct Row {
    const char* pattern;
    std::size_t longest;
    const char* bound;
    const char* explored;
  };
  const Row rows[] = {
      {"abc", 3, "132.763 us, 28288 bytes", "32.109 us, 11336 bytes"},
      {"^abc$", 3, "176.443 us, 35720 bytes", "67.2695 us, 23380 bytes"},
      {"[ab]*c.", 1000, "1637.41 us, 28672 bytes", "1528.1 us, 8760 bytes"},
      {"(a|b)*a[ab]{7}", 1000, "15186.7 us, 3.63315e+06 bytes", "4880.72 us, 890164 bytes"},
      {"(a|b)*a[ab]{8}", 1000, "6.32867e+06 us, 1.78779e+09 bytes", "8262.73 us, 1.78309e+06 bytes"},
      {"(a|b)*a[ab]{3}\\b", 1000, "1.23824e+07 us, 3.72572e+09 bytes", "10363.9 us, 142832 bytes"},
      {"^(ab|ba)*a[ab]{4}\\b", 1000, "25204.9 us, 7.588e+06 bytes", "441.158 us, 137608 bytes"},
      {"^(a|ab|b){1,20}$", 40, "1853.37 us, 767760 bytes", "1094.15 us, 491756 bytes"},
      {"(a?){12}b", 13, "182017 us, 5.27487e+07 bytes", "203.532 us, 47512 bytes"},
      {"abcabx[ab]{1,9}$", 15, "111595 us, 2.43473e+07 bytes", "323.794 us, 112156 bytes"},
      {"(abcdefgh|x)[ab]{1,9}$", 17, "1.47716e+06 us, 2.21477e+08 bytes", "518.82 us, 126552 bytes"},
      {"(\\b(ab|cd)*){3}", 1000, "2.08614e+07 us, 4.99299e+09 bytes", "1682.24 us, 45424 bytes"},
      {"(^|x)a*\\B.\\<b\\>", 1000, "2.47807e+07 us, 4.59059e+09 bytes", "1693 us, 57264 bytes"},
      {"\\`a.{1,30}b\\'", 32, "1493.66 us, 458320 bytes", "893.738 us, 269964 bytes"},
      {"(ab)*[ab]{1,5}$", 1000, "1.24599e+07 us, 3.67167e+09 bytes", "9233.4 us, 71624 bytes"},
      {"xy(z|^)*$", 1000, "8.18767e+06 us, 2.04208e+09 bytes", "3703.05 us, 42436 bytes"},
      {"(a)b\\1[ab]{1,5}$", 1000, "6.23547e+06 us, 1.81963e+09 bytes", "948.447 us, 64424 bytes"},
      {"(.{1,6}\n)*", 1000, "3177.13 us, 434176 bytes", "1592.91 us, 25504 bytes"},
      {"a*(^|$)\\w{2,70}", 1000, "2.44697e+07 us, 8.35635e+09 bytes", "4944.21 us, 1.17215e+06 bytes"},
      {"([a-c]{1,4}/){4}", 20, "267222 us, 7.7105e+07 bytes", "277.186 us, 65352 bytes"},
      {"(((a|b)c?)*d)*\\bx{1,3}", 1000, "2.4358e+07 us, 5.005e+09 bytes", "1808.01 us, 78460 bytes"},
      {"[a-z_]+@([0-9a-z-]{1,15}\\.){1,5}(com|org)", 1000, "3.60209e+07 us, 9.2112e+09 bytes",
       "2997.63 us, 399504 bytes"},
      {"(a|\\b)(b|^)$x", 3, "129353 us, 2.97577e+07 bytes", "125.011 us, 37584 bytes"},
      {".*a.{7}b", 1000, "19561.3 us, 3.97722e+06 bytes", "7344.56 us, 1.36627e+06 bytes"},
      {"(a{1,90}|b)*c", 1000, "1.62179e+07 us, 2.91091e+09 bytes", "1573.64 us, 20048 bytes"},
      {"a.{70}|b.{150}c\\b", 152, "1.46355e+07 us, 6.05444e+09 bytes", "7768.8 us, 2.60962e+06 bytes"},
  };
  for (const Row& row : rows) {
    const Tree tree = Tree::Read(row.pattern);
    const Network network(tree);
    States states(tree, network);
    EXPECT_EQ(Text(states.Bound(SubjectLength, row.longest)), row.bound) << row.pattern;
    Needs needs;
    EXPECT_TRUE(states.Explore(SubjectLength, row.longest, Unlimited, needs)) << row.pattern;
    EXPECT_EQ(Text(needs), row.explored) << row.pattern;
  }
}

TEST(PatternStates, AreGivenUpWhenThereIsTooMuchToFind) {
  struct Row {
    const char* before;
    int passes; // the next does not
    const char* behind;
  };
  const Row rows[] = {{"(a|b)*a[ab]{", 14, "}"},      {"(a?){", 342, "}"},           {"((..)*|(...)*){", 305, "}x"},
                      {"([a-z]{1,", 1240, "}/){12}"}, {"[0-9a-z]{1,", 4797, "}\\b"}, {"^(ab|ba)*a[ab]{", 27, "}\\b"}};
  for (const Row& row : rows) {
    for (const int more : {0, 1}) {
      const std::string pattern = row.before + std::to_string(row.passes + more) + row.behind;
      const Tree tree = Tree::Read(pattern);
      const Network network(tree);
      Needs needs;
      EXPECT_EQ(States(tree, network).Explore(SubjectLength, SubjectLength, Unlimited, needs), more == 0) << pattern;
    }
  }
}

TEST(PatternStates, HaveNoBoundWhenTheListsAreTooLong) {
  const Tree tree = Tree::Read("(a?){1500}");
  const Network network(tree);
  EXPECT_EQ(Text(States(tree, network).Bound(SubjectLength, SubjectLength)), "inf us, inf bytes");
}

TEST(PatternStates, AreNotFoundBeyondTheLimit) {
  const Tree tree = Tree::Read("(a|b)*a[ab]{8}");
  const Network network(tree);
  Needs time = Unlimited;
  time.seconds = 1e-3;
  Needs memory = Unlimited;
  memory.bytes = 1e5;
  for (const Needs& limit : {time, memory}) {
    Needs needs;
    EXPECT_FALSE(States(tree, network).Explore(SubjectLength, SubjectLength, limit, needs));
    EXPECT_LT(needs.seconds, 1.1e-3);
    EXPECT_LT(needs.bytes, limit.bytes + 1e4);
    EXPECT_GT(needs.seconds, 1e-4);
  }
}
