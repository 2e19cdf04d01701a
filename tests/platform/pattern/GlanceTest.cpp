// Which patterns need no estimate, or had theirs: a wrong "yes" lets a costly one through, a wrong "no" makes each
// decision slow.

#include <string>

#include <gtest/gtest.h>

#include "platform/pattern/Glance.h"
#include "platform/pattern/JudgementCache.h"

using namespace Perenna::Pattern;

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

TEST(PatternJudgementCache, KeepsSomeThousandAndBeginsAnew) {
  JudgementCache cache;
  const auto kept = [&cache](const std::string& pattern) {
    Judgement judgement;
    return cache.Find(pattern, judgement) && judgement.malformed;
  };
  Judgement malformed;
  malformed.malformed = true;
  for (int number = 0; number < 4096; ++number) {
    EXPECT_FALSE(kept("(" + std::to_string(number)));
    cache.Keep("(" + std::to_string(number), malformed);
  }
  EXPECT_TRUE(kept("(0") && kept("(4095") && !kept("(4096"));
  cache.Keep(std::string(501, '('), malformed);
  EXPECT_TRUE(kept("(0") && !kept(std::string(501, '(')));
  cache.Keep(std::string(500, '('), malformed);
  EXPECT_TRUE(!kept("(0") && kept(std::string(500, '(')));
}
