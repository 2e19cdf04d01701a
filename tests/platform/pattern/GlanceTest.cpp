// Which patterns need no estimate: a wrong "yes" lets a costly one through, a wrong "no" makes each start slow.

#include <string>

#include <gtest/gtest.h>

#include "platform/pattern/Glance.h"

using Perenna::Pattern::IsPlain;

TEST(PatternGlance, KnowsPlainPatterns) {
  const std::string longest(200, 'a');
  for (const std::string& pattern :
       {std::string(), std::string("^/articles/[0-9]+$"), std::string("^/a(/|$)"), std::string("a*b+c*d+"),
        std::string("(a)(b)?(c)(d)"), std::string("a*[ab]b.c.*"), std::string("a*[^b]*.+c[d].e"),
        std::string("..[a].\\.?\\$"), std::string("a$|b$"), std::string("[]a][^]b]"), longest}) {
    EXPECT_TRUE(IsPlain(pattern)) << pattern;
  }
  for (const std::string& pattern : {std::string("a{2}"),       std::string("a^"),
                                     std::string("a*b+c*d+e*"), std::string("(a)(b)?(c)(d)(e)"),
                                     std::string("a*[ab]b.c."), std::string("a?[ab]b.c."),
                                     std::string(".?.?.?"),     std::string("a$|b$|c$"),
                                     std::string("(a)*"),       std::string("(a)+"),
                                     std::string("a**"),        std::string("a*?"),
                                     std::string("*"),          std::string("\\1"),
                                     std::string("a\\"),        std::string("[[:alpha:]]"),
                                     std::string("[a[]"),       std::string("[a"),
                                     std::string("["),          longest + 'a'}) {
    EXPECT_FALSE(IsPlain(pattern)) << pattern;
  }
}
