// Method names and the order of header names.

#include "Helpers.h"
#include "PN_HTTP.h"

using namespace Perenna;

TEST(Methods, HaveFixedNumbersAndExactNames) {
  const char* const names[] = {"OPTIONS", "HEAD", "GET", "POST", "PUT", "DELETE", "TRACE", "CONNECT", "PATCH"};
  for (std::uint32_t code = 0; code < std::size(names); ++code) {
    Method_t method = METH_MAX;
    EXPECT_STREQ(MethodToString(static_cast<Method_t>(code)), names[code]);
    EXPECT_TRUE(StringToMethod(names[code], method) && method == code) << names[code];
  }
  EXPECT_STREQ(MethodToString(METH_MAX), "UNKNOWN");
  for (const std::string& token :
       {std::string("GET\0", 4), std::string(), std::string("get"), std::string("UNKNOWN")}) {
    Method_t method = METH_TRACE;
    EXPECT_FALSE(StringToMethod(token, method) || method != METH_TRACE) << token;
  }
}

TEST(HeaderNames, OrderWithoutLetterCase) {
  const std::string ascending[] = {"", std::string(1, '\0'), "-", "_", "A", "aB", "ABC", "abd", "B", "\x80", "\xff"};
  for (std::size_t i = 0; i < std::size(ascending); ++i) {
    for (std::size_t j = 0; j < std::size(ascending); ++j) {
      EXPECT_EQ(ci_comp()(ascending[i], ascending[j]), i < j) << ascending[i] << " and " << ascending[j];
    }
  }
  HeaderSet headers{{"Accept", "first"}};
  EXPECT_FALSE(headers.insert({"ACCEPT", "second"}).second);
  EXPECT_EQ(headers.at("accept"), "first");
  const BasicRestEntryCall call(METH_GET);
  EXPECT_TRUE(call.TargetUrl.m_Empty && call.TargetUrl.Port == 0 && !call.TargetUrl.HasQueryToken);
}
