// Where patterns of one shape begin to be refused. The limits were measured on what the C library needs; they move only
// when that is measured anew.

#include <string>

#include <gtest/gtest.h>

#include "platform/pattern/Cost.h"

using namespace Perenna::Pattern;

namespace {

std::string Shape(std::string text, int size) {
  for (std::size_t at = 0; (at = text.find('@')) != std::string::npos;) {
    text.replace(at, 1, std::to_string(size));
  }
  return text;
}

} // namespace

TEST(PatternCost, IsRefusedFromASizeOn) {
  struct Limit {
    const char* shape;
    int passes;
    int refused;
  };
  const Limit limits[] = {{".*a.{@}b", 11, 12},
                          {"[ab]{1,@}$", 420, 450}, // looked for an end among many nodes
                          {"\\<.{1,@}\\>", 415, 445},
                          {"(a?){@}", 325, 360},
                          {"a{0,@}", 4150, 4450}, // the lists of what can be reached
                          {"(^|$){@}", 28, 29},
                          {"(\\b|\\B){@}x", 11, 12},
                          {"a{@}", 9800, 10500}, // one state after the other
                          {"(((a))){@}", 9800, 10500},
                          {"(a|b){@}", 9200, 9900},
                          {"([a-z]{1,@}/){12}", 610, 650},
                          {"(\\b|a){@}", 79, 85},
                          {"^[^a][ab]((\\w|)(b){7,@}\\w?)+$", 630, 670},
                          {"(a|b)*a[ab]{@}\\b", 5, 6}, // conditions double the states
                          {"(^a|b){@}", 7800, 8400},
                          {"^(a|ab|b){1,@}$", 880, 930},
                          {"((..)*|(...)*){@}x", 287, 305},
                          {"(a*b*){@}", 181, 192},
                          {"([^/]+/){@}[^/]+$", 1500, 1600},
                          {"(a{1,@}|b)*c", 5300, 5650}, // a chain that is walked by recursion
                          {"(a{@}){100}", 98, 104},
                          {"abcdefgh[ab]{1,@}$", 1199, 1200}, // matches cannot begin close to each other
                          {"(abcdefgh|x)[ab]{1,@}$", 434, 435},
                          {"(ab)*[ab]{1,@}$", 7, 8}, // states that lead to each other
                          {"(\\b(ab|cd)*){@}", 35, 36},
                          {"(\\bab*){@}", 8066, 8067},
                          {"^(ab|ba)*a[ab]{@}\\b", 519, 520},
                          {"((a|b)(a|b)(a|b)(a|b)(a|b).{1,@})y\\1", 2, 3}}; // ways to a back-reference
  for (const Limit& limit : limits) {
    EXPECT_EQ(Judge(Shape(limit.shape, limit.passes)).refusal, nullptr) << limit.shape << ' ' << limit.passes;
    EXPECT_NE(Judge(Shape(limit.shape, limit.refused)).refusal, nullptr) << limit.shape << ' ' << limit.refused;
  }
}
