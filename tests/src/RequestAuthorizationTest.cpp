// Requests: what the filters of a user's groups allow.

#include "support/AccessDirectory.h"

using namespace Testing;
using ::testing::ElementsAre;

namespace {

/// "anna" is in groups g and h, not in "others".
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
  struct Filter {
    std::string method, group_id, filter, action;
  };
  struct Case {
    std::string name;
    std::vector<Filter> filters;
    bool get, any; // may GET /a/b; some filter matches there
    std::vector<std::string> methods;
  };
  const std::vector<Case> cases = {
      {"nothing is allowed by default", {}, false, false, {}},
      {"one allow grants its method alone", {{"GET", "g", "^/a", "Allow"}}, true, true, {"GET"}},
      {"another method's filter", {{"POST", "g", "^/a", "Allow"}}, false, true, {"POST"}},
      {"another group's filter", {{"GET", "others", "^/a", "Allow"}}, false, false, {}},
      {"a filter of a group that does not exist", {{"GET", "gone", "^/a", "Allow"}}, false, false, {}},
      {"another URL's filter", {{"GET", "g", "^/b", "Allow"}}, false, false, {}},
      {"deny in another group wins", {{"GET", "g", "^/a", "Allow"}, {"GET", "h", "b$", "Deny"}}, false, true, {}},
      {"deny wins, stored first", {{"GET", "g", "^/a", "Deny"}, {"GET", "g", "^/a", "Allow"}}, false, true, {}},
      {"deny alone", {{"GET", "g", "", "Deny"}, {"GET", "g", "/", "Deny"}}, false, true, {}},
      {"a foreign deny", {{"GET", "g", "^/a", "Allow"}, {"GET", "others", "^/a", "Deny"}}, true, true, {"GET"}},
      {"deny of another method", {{"GET", "g", "^/a", "Allow"}, {"PUT", "g", "^/a", "Deny"}}, true, true, {"GET"}},
      {"deny elsewhere", {{"GET", "g", "^/a", "Allow"}, {"GET", "g", "^/a$", "Deny"}}, true, true, {"GET"}},
      {"two allows list once", {{"GET", "g", "^/a", "Allow"}, {"GET", "h", "b$", "Allow"}}, true, true, {"GET"}},
      {"an allow in other letters grants nothing",
       {{"GET", "g", "/", "allow"}, {"GET", "g", "/", "ALLOW"}},
       false,
       true,
       {}},
      {"a deny in other letters refuses nothing",
       {{"GET", "g", "/", "Allow"}, {"GET", "g", "/", "DENY"}, {"GET", "g", "/", "deny "}},
       true,
       true,
       {"GET"}},
      {"a method in other letters",
       {{"get", "g", "/", "Allow"}, {"GET ", "g", "/", "Allow"}},
       false,
       true,
       {"GET ", "get"}},
      {"an empty expression matches nothing", {{"GET", "g", "", "Allow"}}, false, false, {}},
      {"one that does not compile refuses nothing",
       {{"GET", "g", "/", "Allow"}, {"GET", "g", "(", "Deny"}},
       true,
       true,
       {"GET"}},
      {"methods are listed in ascending order",
       {{"PUT", "h", "/", "Allow"},
        {"POST", "g", "/", "Allow"},
        {"TRACE", "g", "/", "Allow"},
        {"GET", "h", "/", "Allow"},
        {"DELETE", "g", "/", "Allow"},
        {"TRACE", "h", "/a", "Deny"},
        {"X-made-up", "g", "/", "Allow"}},
       true,
       true,
       {"DELETE", "GET", "POST", "PUT", "X-made-up"}},
  };
  for (const Case& one : cases) {
    SCOPED_TRACE(one.name);
    Run("DELETE FROM filters");
    for (const Filter& filter : one.filters) {
      AddFilter(filter.method, filter.group_id, filter.filter, filter.action);
    }
    EXPECT_EQ(May("anna", Perenna::METH_GET, "/a/b"), one.get);
    bool any = !one.any;
    EXPECT_EQ(Options("anna", "/a/b", &any), one.methods);
    EXPECT_EQ(any, one.any);
    for (const std::string nobody : {"", "alone", "Anna", "unknown"}) {
      EXPECT_FALSE(May(nobody, Perenna::METH_GET, "/a/b")) << nobody;
      EXPECT_THAT(Options(nobody, "/a/b", &any), ElementsAre()) << nobody;
      EXPECT_FALSE(any) << nobody;
    }
  }
}

TEST_F(RequestAuthorization, AnExpressionMatchesAnywhereInTheUrlUnlessItIsAnchored) {
  struct Case {
    std::string filter, url;
    bool matches;
  };
  for (const Case& one : std::vector<Case>{{"^/users$", "/users", true},
                                           {"^/users$", "/users/", false},
                                           {"users", "/api/users/7", true},
                                           {"/users", "/other?next=/users", true},
                                           {"^/a", "/b/a", false},
                                           {"/a|/b", "/xx/b", true},
                                           {"^/v[0-9]{1,2}/", "/v12/x", true},
                                           {"^/v[0-9]{1,2}/", "/v123/x", false},
                                           {"/a.b", "/axb", true},
                                           {R"(/a\.b)", "/axb", false},
                                           {"^/A$", "/a", false},
                                           {"^$", "", true},
                                           {"^$", "/", false},
                                           {"[[:alpha:]]+$", "/x1", false},
                                           {"^/a$", "/a\n/b", true},
                                           {"^/b$", "/a\n/b", true},
                                           {"/a./b", "/a\n/b", false},
                                           {"a[^x]", "/a\n", false},
                                           {"(^|/)a(/|$)", "/b/a", true},
                                           {"%2e", "/%2E", false}}) {
    Run("DELETE FROM filters");
    AddFilter("GET", "g", one.filter, "Allow");
    EXPECT_EQ(May("anna", Perenna::METH_GET, one.url), one.matches) << one.filter << " on " << one.url;
    EXPECT_EQ(Options("anna", one.url).size(), one.matches ? 1U : 0U) << one.filter << " on " << one.url;
  }
  EXPECT_EQ(Log(), Lines{});
}

TEST_F(RequestAuthorization, EveryMethodIsMatchedByItsOwnNameAlone) {
  const std::vector<std::string> names = {"OPTIONS", "HEAD",  "GET",     "POST", "PUT",
                                          "DELETE",  "TRACE", "CONNECT", "PATCH"};
  for (const std::string& name : names) {
    AddFilter(name, "g", "^/" + name + "$", "Allow");
  }
  for (const std::string& name : names) {
    for (std::size_t method = 0; method < names.size(); ++method) {
      EXPECT_EQ(May("anna", static_cast<Perenna::Method_t>(method), "/" + name), names[method] == name);
    }
    EXPECT_FALSE(May("anna", Perenna::METH_MAX, "/" + name));
    EXPECT_THAT(Options("anna", "/" + name), ElementsAre(name));
  }
}

TEST_F(RequestAuthorization, MethodsAreAppendedToWhatTheListHolds) {
  AddFilter("PUT", "g", "/", "Allow");
  AddFilter("GET", "g", "/", "Allow");
  Perenna::PListArray methods = Array({"PUT"});
  const Perenna::HTTPRequest request(Perenna::METH_TRACE, "/");
  EXPECT_TRUE(Manager().GetOptionsMethods(request, "anna", methods));
  EXPECT_TRUE(Manager().GetOptionsMethods(request, "anna", methods));
  EXPECT_THAT(Texts(methods), ElementsAre("PUT", "GET", "PUT", "GET", "PUT"));
  EXPECT_FALSE(Manager().GetOptionsMethods(request, "alone", methods));
  EXPECT_EQ(methods.size(), 5U);
}

TEST_F(RequestAuthorization, ADecisionFollowsTheDirectoryAtOnceAndAnEmptyIdNeverReachesIt) {
  AddFilter("GET", "g", "/", "Allow");
  EXPECT_TRUE(May("anna", Perenna::METH_GET, "/"));
  EXPECT_EQ(Manager().SetUserGroups("anna", Array({"h"})), Tarn::RESULT_FALSE);
  EXPECT_FALSE(May("anna", Perenna::METH_GET, "/"));
  Run("INSERT INTO groupusers VALUES('g', 'anna'), ('g', 'anna'), ('g', '')"); // duplicates count once
  EXPECT_TRUE(May("anna", Perenna::METH_GET, "/"));
  EXPECT_FALSE(May("", Perenna::METH_GET, "/"));
  Run("DROP TABLE filters");
  EXPECT_FALSE(May("", Perenna::METH_GET, "/"));
  EXPECT_TRUE(Options("", "/").empty());
  EXPECT_EQ(Log(), Lines{});
  EXPECT_FALSE(May("anna", Perenna::METH_GET, "/"));
  EXPECT_FALSE(Log().empty());
}
