// Requests: what the filters of a user's groups allow.

#include <gmock/gmock.h>

#include "support/AccessDirectory.h"

using namespace Testing;

namespace {

/// "anna" is in groups g and h, not in "others"; "alone" is in none.
class RequestAuthorization : public AccessDirectory {
protected:
  void SetUp() override {
    AccessDirectory::SetUp();
    AddUser("anna");
    AddUser("alone");
    AddGroup("g", {"anna"});
    AddGroup("h", {"anna", "root"});
    AddGroup("others", {"root"});
  }
};

} // namespace

TEST_F(RequestAuthorization, OneDenyRefusesElseOneAllowGrantsAndTheMethodsAgree) {
  struct Case {
    std::string name, filters; // separated by commas
    bool get;                  // whether anna may GET /a/b
    std::string options;       // what she may do there
  };
  // clang-format off
  const std::vector<Case> cases = {
      {"nothing is allowed by default", "", false, "no"},
      {"one allow grants its method alone", "GET g ^/a Allow", true, "yes GET"},
      {"another method's filter", "POST g ^/a Allow", false, "yes POST"},
      {"another group's filter", "GET others ^/a Allow", false, "no"},
      {"a filter of a group that does not exist", "GET gone ^/a Allow", false, "no"},
      {"another URL's filter", "GET g ^/b Allow", false, "no"},
      {"deny in another group wins", "GET g ^/a Allow,GET h b$ Deny", false, "yes"},
      {"deny wins, stored first", "GET g ^/a Deny,GET g ^/a Allow", false, "yes"},
      {"a foreign deny", "GET g ^/a Allow,GET others ^/a Deny", true, "yes GET"},
      {"deny of another method", "GET g ^/a Allow,PUT g ^/a Deny", true, "yes GET"},
      {"deny elsewhere", "GET g ^/a Allow,GET g ^/a$ Deny", true, "yes GET"},
      {"two allows list once", "GET g ^/a Allow,GET h b$ Allow", true, "yes GET"},
      {"an allow in other letters grants nothing", "GET g / allow,GET g / ALLOW", false, "yes"},
      {"a deny in other letters refuses nothing", "GET g / Allow,GET g / DENY,GET g / deny", true, "yes GET"},
      {"a method in other letters", "get g / Allow,G g / Allow", false, "yes G get"},
      {"an empty expression matches nothing", "GET g  Allow", false, "no"},
      {"one that does not compile refuses nothing", "GET g / Allow,GET g ( Deny", true, "yes GET"},
      {"methods in ascending order", "PUT h / Allow,POST g / Allow,TRACE g / Allow,GET h / Allow,DELETE g / Allow,"
                                     "TRACE h /a Deny,X g / Allow", true, "yes DELETE GET POST PUT X"}};
  // clang-format on
  for (const Case& one : cases) {
    SCOPED_TRACE(one.name);
    Run("DELETE FROM filters");
    for (const std::string& filter : Split(one.filters, ',')) {
      filter.empty() ? void() : AddFilter(filter);
    }
    EXPECT_EQ(May("anna", "GET /a/b"), one.get);
    EXPECT_EQ(Options("anna", "/a/b"), one.options);
    for (const std::string nobody : {"", "alone", "Anna", "unknown"}) {
      EXPECT_FALSE(May(nobody, "GET /a/b")) << nobody;
      EXPECT_EQ(Options(nobody, "/a/b"), "no") << nobody;
    }
  }
}

TEST_F(RequestAuthorization, AnExpressionMatchesAnywhereInTheUrlUnlessItIsAnchored) {
  struct Case {
    std::string filter, url;
    bool matches;
  };
  // clang-format off
  const std::vector<Case> cases = {
      {"^/users$", "/users", true}, {"^/users$", "/users/", false}, {"users", "/api/users/7", true},
      {"/users", "/other?next=/users", true}, {"^/a", "/b/a", false}, {"^/v[0-9]{1,2}/", "/v12/x", true},
      {"^/v[0-9]{1,2}/", "/v123/x", false}, {R"(/a\.b)", "/axb", false}, {"^/A$", "/a", false}, {"^$", "", true},
      {"^/a$", "/a\n/b", true}, {"^/b$", "/a\n/b", true}, {"/a./b", "/a\n/b", false}, {"a[^x]", "/a\n", false}};
  // clang-format on
  for (const Case& one : cases) {
    Run("DELETE FROM filters");
    AddFilter("GET g " + one.filter + " Allow");
    EXPECT_EQ(May("anna", "GET " + one.url), one.matches) << one.filter << " on " << one.url;
    EXPECT_EQ(Options("anna", one.url), one.matches ? "yes GET" : "no") << one.filter << " on " << one.url;
  }
  EXPECT_EQ(Log(), "");
}

TEST_F(RequestAuthorization, MethodsAreAppendedToWhatTheListHolds) {
  AddFilter("GET g / Allow");
  Perenna::PListArray methods = Array({"PUT"});
  const Perenna::HTTPRequest request(Perenna::METH_TRACE, "/");
  EXPECT_TRUE(Manager().GetOptionsMethods(request, "anna", methods));
  EXPECT_TRUE(Manager().GetOptionsMethods(request, "anna", methods));
  EXPECT_THAT(Texts(methods), ::testing::ElementsAre("PUT", "GET", "GET"));
}

TEST_F(RequestAuthorization, ADecisionFollowsTheDirectoryAtOnce) {
  AddFilter("GET g / Allow");
  EXPECT_TRUE(May("anna", "GET /"));
  EXPECT_EQ(Manager().SetUserGroups("anna", Array({"h"})), Tarn::RESULT_FALSE);
  EXPECT_FALSE(May("anna", "GET /"));
  Run("INSERT INTO groupusers VALUES('g', 'anna'), ('g', 'anna'), ('g', '')"); // duplicates count once
  EXPECT_EQ(Options("anna", "/"), "yes GET");
  EXPECT_FALSE(May("", "GET /"));
}
