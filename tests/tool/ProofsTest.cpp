// What is said about all targets, end to end.

#include "ToolDirectory.h"

namespace Testing {

namespace {

class Proofs : public ToolDirectory {
protected:
  void SetUp() override {
    ToolDirectory::SetUp();
    Sql("INSERT INTO users VALUES('alice', 'plain_pw', 'x', 'then', 'root'), ('ina', 'plain_pw', 'x', 'then', 'root');"
        "INSERT INTO groups VALUES('staff', ''), ('interns', '');"
        "INSERT INTO groupusers VALUES('staff', 'alice'), ('interns', 'ina');"
        "INSERT INTO filters VALUES('GET', 'staff', '^/articles', 'Allow'), ('PUT', 'staff', '^/pay(/|$)', 'Allow'), "
        "('GET', 'interns', '^/articles(/|$)', 'Allow')");
  }
};

TEST_F(Proofs, DiffSaysWhatChangesAndFailsOnWhatMustNot) {
  const std::string before = PathBeside("before.json");
  const Arguments on_granted = {"diff", before, File(), "--fail-on=granted"};
  const Arguments on_refused = {"diff", before, File(), "--fail-on=refused"};
  EXPECT_EQ(Tool({"export", before}).status, 0);
  Run({{on_refused, 0, "Nobody's rights change, on all paths in normal form.\n", ""}});

  Sql("UPDATE filters SET filter = '^/articles([?/]|$)' WHERE group_id = 'staff' AND method = 'GET'");
  const std::string end = "One target each is shown that changes, and what is not shown does not change, on all paths "
                          "in normal form.\n";
  const std::string narrower = "USERS  GROUPS  METHODS  NOW ALLOWED  NOW REFUSED\n"
                               "alice  staff   GET      -            /articlesa\n" +
                               end;
  Run({{on_granted, 0, narrower, ""}, {on_refused, 1, narrower, ""}});
  Run({{{"import", "--dry-run", "--fail-on=refused", before}, 0, Tool({"import", "--dry-run", before}).out, ""},
       {{"import", "--fail-on=refused", before}, 2, "", "--dry-run"}});
  EXPECT_EQ(Json({"import", "--dry-run", "--fail-on=granted", before}, 1)["access"]["changes"][0]["granted"]["target"],
            "/articlesa");

  // Whoever gets nothing new for sure is not refused something for sure.
  Sql("INSERT INTO filters VALUES('PUT', 'staff', '^/pay/([a-z]{9})\\1', 'Deny'); DELETE FROM users WHERE user_id = "
      "'ina'");
  Run({{on_granted, 1,
        "USERS  GROUPS               METHODS  NOW ALLOWED  NOW REFUSED\n"
        "ina    interns -> no group  GET      -            /articles\n"
        "alice  staff                GET      -            /articlesa\n"
        "alice  staff                PUT      -            ?\n"
        "?  the pattern \"^/pay/([a-z]{9})\\1\" holds a back-reference\n" +
            end,
        ""},
       {{"diff", before, PathBeside("none")}, 2, "", "none"},
       {{"diff", "-", File()}, 2, "", "standard input is neither"}});
}

TEST_F(Proofs, SentencesHoldOrHaveACounterExample) {
  Sql("INSERT INTO filters VALUES('GET', 'staff', '^/articles/.*[.]php$', 'Deny')");
  Run({
      {{"prove", "nobody outside staff may PUT, POST or DELETE below /pay", "no member of staff may PUT below /pay/x",
        "everybody in interns may GET /articles and all below", "user ina may not do anything matching \"^/p\"",
        "every member of staff may GET /articles and all below"},
       1,
       "true     nobody outside staff may PUT, POST or DELETE below /pay\n"
       "false    no member of staff may PUT below /pay/x\n"
       "         alice PUT /pay/x/a is allowed\n"
       "true     everybody in interns may GET /articles and all below\n"
       "true     user ina may not do anything matching \"^/p\"\n"
       "false    every member of staff may GET /articles and all below\n"
       "         alice GET /articles/.php is refused\n"
       "These are about all paths in normal form.\n",
       ""},
      {{"prove", "--file=-"},
       0,
       "true     user ina may GET /articles\nThat is about all paths in normal form.\n",
       "",
       "# what interns rely on\n\n user ina may GET /articles \n"},
      {{"prove", "--file=-"}, 2, "", "standard input, line 2: \"nobody may\": it ends where a method", "\nnobody may"},
      {{"prove", "nobody may not GET /"}, 2, "", "of one user only"},
      {{"prove", "nobody may GET /a/../b"}, 2, "", "no path in normal form"},
      {{"prove", "no member of stuff may GET /"}, 2, "", "there is no group \"stuff\""},
      {"prove", 2, "", "what is to be proved?"},
  });
}

TEST_F(Proofs, MatrixCutsAllTargetsIntoRegions) {
  Sql("INSERT INTO filters VALUES('GET', 'staff', '/x$', 'Deny'), ('GET', 'interns', '\\b7', 'Deny')");
  Run({
      {"matrix", 0,
       "USERS  GROUPS    TARGETS LIKE  METHODS\n"
       "root   no group  -             -\n"
       "ina    interns   /articles     ? GET\n"
       "ina    interns   /articles/x   ? GET\n"
       "alice  staff     /articles     GET\n"
       "alice  staff     /articlesa    GET\n"
       "alice  staff     /pay          PUT\n"
       "alice  staff     /pay/x        PUT\n"
       "The filters tell 8 regions of paths in normal form apart; where no row is, nothing is allowed.\n",
       "\"?\" stands where"},
      {"matrix --csv --groups", 0,
       "subject,groups,target,method,verdict\r\n\"interns\",\"interns\",\"/articles\",GET,unknown\r\n"
       "\"interns\",\"interns\",\"/articles/x\",GET,unknown\r\n\"staff\",\"staff\",\"/articles\",GET,allowed\r\n"
       "\"staff\",\"staff\",\"/articlesa\",GET,allowed\r\n\"staff\",\"staff\",\"/pay\",PUT,allowed\r\n"
       "\"staff\",\"staff\",\"/pay/x\",PUT,allowed\r\n",
       "\"?\" stands where"},
  });
}

TEST_F(Proofs, MatrixSaysThatThereAreTooManyRegions) {
  Sql("INSERT INTO filters WITH RECURSIVE n(i) AS (VALUES(1) UNION ALL SELECT i + 1 FROM n WHERE i < 1000) SELECT "
      "'DELETE', 'interns', '^/' || i || '$', 'Allow' FROM n");
  for (const char* const form : {"", "--csv", "--json"}) {
    Arguments arguments = {"matrix", "--groups"};
    if (*form != '\0') {
      arguments.emplace_back(form);
    }
    const ToolResult result = Tool(arguments);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err.find("there are more than 1000 regions: 4 patterns cut none") == std::string::npos,
              form == std::string("--json"));
    const char* const told = *form == '\0'                  ? "interns  /             ? DELETE\n"
                             : form == std::string("--csv") ? "\"interns\",\"interns\",\"/\",DELETE,unknown\r\n"
                                                            : "\"complete\": false,\n  \"left_out\": 4,";
    EXPECT_NE(result.out.find(told), std::string::npos) << form << result.out.substr(0, 500);
  }
}

} // namespace

} // namespace Testing
