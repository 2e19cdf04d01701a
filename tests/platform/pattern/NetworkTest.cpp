// The network of a pattern: the C library's own, as it stands in what regcomp has made, is the measure.

#include <random>

#include <gnu/libc-version.h>
#include <gtest/gtest.h>
#include <regex.h>

#include "platform/pattern/network/Network.h"

using namespace Perenna::Pattern;

namespace {

/// The begin of what `regex_t` points to in the GNU C library 2.36.
struct Automaton {
  struct Set {
    int room;
    int size;
    int* elements;
  };
  void* nodes;
  std::size_t nodes_room;
  std::size_t nodes_size;
  int* next;
  int* origins;
  Set* ways;
  Set* lists;
};

std::string RandomPattern(std::mt19937& random) {
  static const char* const parts[] = {"a",         "b",        "[ab]",  "^",          "$",       "\\b",     "\\B",
                                      "\\<",       "\\>",      "\\`",   "\\'",        "(",       ")",       "(",
                                      ")",         "|",        "*",     "?",          "{2}",     "{3}+",    "{0,2}",
                                      "{2,}",      "{0,3}",    "{0}",   "()",         "\\1",     "(^|b)",   "((b|$))",
                                      "((a)b{0})", "((a){1})", "($|a)", "(\\b|a){2}", "(a?b?|)", "(a?|b?)?"};
  std::string pattern;
  for (auto length = random() % 12 + 1; length > 0; --length) {
    pattern += parts[random() % std::size(parts)];
  }
  return pattern;
}

} // namespace

TEST(PatternNetwork, IsTheLibrarysOwn) {
  if (std::string(gnu_get_libc_version()) != "2.36") {
    GTEST_SKIP() << "knows what regcomp makes in the GNU C library 2.36 only";
  }
  constexpr unsigned Seed = 1;
  constexpr std::size_t MaximumListed = 20000;
  std::mt19937 random(Seed); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same every time
  int compared = 0;
  for (int round = 0; round < 20000; ++round) {
    const std::string pattern = RandomPattern(random);
    const Tree tree = Tree::Read(pattern);
    if (tree.GetFault() != Fault::None) {
      continue;
    }
    const Network network(tree);
    if (!network.Complete() || network.ListedNodes() > MaximumListed) {
      continue;
    }
    ++compared;
    regex_t regex;
    ASSERT_EQ(regcomp(&regex, pattern.c_str(), REG_EXTENDED | REG_NEWLINE), 0) << pattern;
    const auto* const automaton = reinterpret_cast<const Automaton*>(regex.buffer);
    std::size_t listed = 0;
    std::size_t room = 0;
    for (std::size_t node = 0; node < automaton->nodes_size; ++node) {
      listed += static_cast<std::size_t>(automaton->lists[node].size);
      room += static_cast<std::size_t>(automaton->lists[node].room);
    }
    // A back-reference matches the empty text at times only, but is passed in a network; a loop is walked once more.
    const bool passes = pattern.find("\\1") != std::string::npos;
    const bool loops = pattern.find_first_of("*+") != std::string::npos || pattern.find(",}") != std::string::npos;
    if (passes) {
      EXPECT_LE(automaton->nodes_size, network.Size()) << pattern;
    } else {
      EXPECT_EQ(automaton->nodes_size, network.Size()) << pattern;
    }
    if (passes || loops) {
      EXPECT_LE(listed, network.ListedNodes()) << pattern;
    } else {
      EXPECT_EQ(listed, network.ListedNodes()) << pattern;
      EXPECT_EQ(room, network.ReservedNodes()) << pattern;
    }
    regfree(&regex);
  }
  EXPECT_GT(compared, 5000);
}
