// The group and filter commands.

#include <gmock/gmock.h>

#include "ToolDirectory.h"

namespace Testing {
namespace {

using ::testing::HasSubstr;
using OrderedJson = nlohmann::ordered_json;

class GroupsAndFilters : public ToolDirectory {
protected:
  void SetUp() override {
    ToolDirectory::SetUp();
    Sql("INSERT INTO users VALUES('ann', 'plain_pw', 'x', 'then', 'root'), ('bob', 'plain_pw', 'x', 'then', 'root')");
  }
};

TEST_F(GroupsAndFilters, GroupsAreAddedFilledAndDeleted) {
  Run({
      {{"group", "add", "editors", "People who edit"}, 0, "Added group \"editors\".\n", ""},
      {"group add readers", 0, "Added group \"readers\".\n", ""},
      {"group add editors", 1, "", "the group \"editors\" exists already"},
      {"group set-members editors bob ann bob", 0, "Group \"editors\" now has the members: ann, bob.\n", ""},
      {"group set-members editors ann eve", 1, "", "there is no user \"eve\""},
      {"group list", 0,
       "GROUP    NAME             USERS\neditors  People who edit  ann, bob\nreaders  readers          -\n", ""},
      {"filter add editors allow GET,HEAD ^/articles(/|$)", 0, "Added 2 filters.\n", ""},
      {"group show editors", 0,
       "Group  editors\nName   People who edit\nUsers  ann, bob\n\n"
       "ACTION  METHOD  PATTERN\nAllow   GET     ^/articles(/|$)\nAllow   HEAD    ^/articles(/|$)\n",
       ""},
      {"group set-members editors --none", 0, "Group \"editors\" now has the members: -.\n", ""},
      {"group delete editors none readers", 1, "", "there is no group \"none\"; nothing was deleted"},
      {"group delete readers editors", 0,
       "Deleted group \"editors\". Its 2 filters stay and apply again to a later group of this id.\n"
       "Deleted group \"readers\".\n",
       ""},
      {"group add editors", 0,
       "Added group \"editors\". Note: 2 filters of an earlier group of this id now apply to it.\n", ""},
  });
  EXPECT_EQ(Json({"group", "set-members", "editors", "bob", "ann"}),
            OrderedJson::parse(R"({"group_id":"editors","users":["ann","bob"],"warnings":[]})"));
  EXPECT_EQ(
      Json("group delete editors"),
      OrderedJson::parse(R"({"deleted":[{"group_id":"editors","filters_left":2}],"filters_deleted":0,"warnings":[]})"));
}

TEST_F(GroupsAndFilters, FiltersAreAddedListedAndDeletedByAllFourValues) {
  Run({
      {"group add g", 0, "Added group \"g\".\n", ""},
      {"group add h", 0, "Added group \"h\".\n", ""},
      {{"filter", "add", "g", "Allow", "GET,PUT", "^/a\\.b$"}, 0, "Added 2 filters.\n", ""},
      {"filter add g DENY PUT [x]", 0, "Added 1 filter.\n", ""},
      {{"filter", "add", "h", "Allow", "GET", "^/a\\.b$"}, 0, "Added 1 filter.\n", ""},
      {"filter list", 0,
       "GROUP  ACTION  METHOD  PATTERN\ng      Allow   GET     ^/a\\.b$\ng      Allow   PUT     ^/a\\.b$\n"
       "g      Deny    PUT     [x]\nh      Allow   GET     ^/a\\.b$\n",
       ""},
      {"filter list --group g --method PUT --skip 1", 0,
       "GROUP  ACTION  METHOD  PATTERN\ng      Deny    PUT     [x]\n1 of 2 filters\n", ""},
      {{"filter", "delete", "g", "Allow", "GET,HEAD", "^/a\\.b$"}, 0, "Deleted 1 filter.\n", ""},
      {{"filter", "delete", "g", "Allow", "GET", "^/a\\.b$"}, 1, "", "no filter has exactly these four values"},
      {"filter delete g Deny PUT [x]", 0, "Deleted 1 filter.\n", ""},
  });
  Run({{"group delete h", 0, "Deleted group \"h\". Its 1 filter stays and applies again to a later group of this id.\n",
        ""}});
  EXPECT_EQ(Json({"filter", "list", "--group", "h"})["group_exists"], false);
  EXPECT_THAT(Tool({"filter", "list", "--group", "h"}).out, HasSubstr("\nNote: there is no group \"h\""));
}

TEST_F(GroupsAndFilters, RefusalsNameTheValueAndChangeNothing) {
  Sql("INSERT INTO groups VALUES('g', 'g'); INSERT INTO filters VALUES('PUT', 'g', '/', 'Allow')");
  const std::string before = Contents(File());
  Run({
      {{"group", "add", "the editors"}, 2, "", "GROUP: \"the editors\" is not a group's id"},
      {{"group", "add", ""}, 2, "", "GROUP: \"\" is not a group's id"},
      {"group show none", 1, "", "there is no group \"none\""},
      {"group set-members none ann", 1, "", "there is no group \"none\""},
      {"filter add none Allow GET /", 1, "", "there is no group \"none\""},
      {"filter add g Permit GET /", 2, "", "ACTION: \"Permit\" is neither Allow nor Deny"},
      {"filter add g Allow get /", 2, "", "the case of letters counts: GET is meant?"},
      {"filter add g Allow GET,GET /", 2, "", "METHOD: \"GET\" is given twice"},
      {"filter add g Allow GET,PUT /", 1, "", "has this filter already: Allow PUT \"/\"; nothing was added"},
      {"filter list --group none --json", 1, "", "there is no group \\\"none\\\""},
      {"filter list --method put", 2, "", "METHOD: \"put\" is none of"},
      {"filter add g Allow ,GET /", 2, "", "METHOD: \"\" is none of"},
      {"filter add g Allow GET ([", 2, "", "PATTERN: \"([\" is not a POSIX extended regular expression"},
      {{"filter", "add", "g", "Allow", "GET", ""}, 2, "", "an empty pattern matches nothing"},
      {{"filter", "add", "g", "Deny", "GET", "^/(?:a|b)$"}, 2, "", "\"(\" groups here; better: \"^/(a|b)$\""},
  });
  EXPECT_TRUE(Contents(File()) == before);
  Run({{{"filter", "add", "none", "Permit", "brew", "([", "--unchecked"}, 0, "Added 1 filter.\n", ""},
       {{"filter", "add", "g", "Deny", "GET", "^/n/\\d+$"},
        0,
        "Added 1 filter.\n",
        "mean by it; better: \"^/n/[0-9]+$\""}});
  EXPECT_EQ(Query("SELECT * FROM filters WHERE method = 'brew'"),
            (std::vector<BareDatabase::Row>{{"brew", "none", "([", "Permit"}}));
}

TEST_F(GroupsAndFilters, APatternIsTriedWithoutADatabase) {
  const std::vector<Step> steps = {
      {{"filter", "test", "b+", "/abbb", "/x"}, 1, "MATCHES  PART  URL\nyes      bbb   /abbb\nno       -     /x\n", ""},
      {{"filter", "test", "[", "/"}, 2, "", "PATTERN: \"[\" is not a POSIX extended regular expression"},
      {{"filter", "test", "[a,b]", "[a,b]"}, 0, "MATCHES  PART  URL\nyes      a     [a,b]\n", ""},
  };
  for (const Step& step : steps) {
    const ToolResult result = RunTool("", step.arguments);
    EXPECT_EQ(result.status, step.status) << ::testing::PrintToString(step.arguments);
    EXPECT_EQ(result.out, step.out);
    EXPECT_THAT(result.err, HasSubstr(step.error));
  }
}

} // namespace
} // namespace Testing
