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
    int passes; // the next is refused
  };
  const Limit limits[] = {{".*a.{@}b", 11},
                          {"[ab]{1,@}$", 434}, // looked for an end among many nodes
                          {"\\<.{1,@}\\>", 430},
                          {"(a?){@}", 341},
                          {"a{0,@}", 4291}, // the lists of what can be reached
                          {"(^|$){@}", 28},
                          {"(\\b|\\B){@}x", 11},
                          {"a{@}", 10150}, // one state after the other
                          {"(((a))){@}", 10119},
                          {"(a|b){@}", 9522},
                          {"([a-z]{1,@}/){12}", 629},
                          {"(\\b|a){@}", 82},
                          {"^[^a][ab]((\\w|)(b){7,@}\\w?)+$", 650},
                          {"(^a|b){@}", 8080},
                          {"^(a|ab|b){1,@}$", 906},
                          {"(a*b*){@}", 186},
                          {"([^/]+/){@}[^/]+$", 1551},
                          {"(a{1,@}|b)*c", 5476}, // a chain that is walked by recursion
                          {"(a{@}){100}", 101},
                          {"(.{1,@}\\n)*", 775},
                          {"(a{1,@}|b{1,@}|c)*d", 3872},
                          {"((a{1,@}b)*c)*", 3734},
                          {"(\\ba?){@}", 36},
                          {"abcdefgh[ab]{1,@}$", 1199}, // matches cannot begin close to each other
                          {"(ab)*[ab]{1,@}$", 7},       // states that lead to each other
                          {"(\\b(ab|cd)*){@}", 35},
                          {"$a(b{10}){@}", 8333}, // elements, in places that no text comes to
                          {"$a((b|c){10}){@}", 1923},
                          {"$a((x{2,}){10}){@}", 1612},
                          {"(a(b){@})\\1", 165},
                          {"(a|b{1,@})c(\\1|c)", 32}, // ways to a back-reference
                          {"((a|b)(a|b)(a|b)(a|b)(a|b).{1,@})y\\1", 2}};
  for (const Limit& limit : limits) {
    EXPECT_EQ(Judge(Shape(limit.shape, limit.passes)).refusal, nullptr) << limit.shape << ' ' << limit.passes;
    const Judgement next = Judge(Shape(limit.shape, limit.passes + 1));
    EXPECT_NE(next.refusal, nullptr) << limit.shape << ' ' << limit.passes + 1;
    EXPECT_EQ(next.for_reference, std::string(limit.shape).find("\\1") != std::string::npos) << limit.shape;
  }
}
