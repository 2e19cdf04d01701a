// What administrators do every day: single memberships, lists for other programs, many users at once, expectations.

#include <regex>

#include <gmock/gmock.h>
#include <sys/stat.h>

#include "ToolDirectory.h"

namespace Testing {
namespace {

using ::testing::HasSubstr;
using OrderedJson = nlohmann::ordered_json;

class Everyday : public ToolDirectory {
protected:
  void SetUp() override {
    ToolDirectory::SetUp();
    Sql("INSERT INTO groups VALUES('administrators', 'a'), ('staff', 's'); INSERT INTO groupusers VALUES"
        "('administrators', 'root'); INSERT INTO users VALUES('ann', 'plain_pw', 'pw', '', 'root'), ('bo', 'sha256',"
        " 'x', '', 'root'); INSERT INTO filters VALUES('GET', 'staff', '^/a(/|$)', 'Allow'), ('GET', 'staff',"
        " '^/a/b', 'Deny')");
  }
};

TEST_F(Everyday, SingleMembershipsComeAndGo) {
  const std::string left = "no member of the group \"administrators\" who can log in is left";
  Run({
      {"user add-group ann staff administrators staff", 0, "User \"ann\" is now in administrators, staff.\n", ""},
      {"user add-group ann staff", 0, "Nothing to do: all of them are members already.\n", ""},
      {"group remove-member administrators ann bo", 0, "ann is no longer in group \"administrators\".\n", ""},
      {"group remove-member administrators root", 1, "", left},
      {"group add-member staff bo no", 1, "", "there is no user \"no\""},
      {"user remove-group ann nowhere", 1, "", "there is no group \"nowhere\""},
      {"group rename staff People", 0, "Group \"staff\" is now named \"People\".\n", ""},
      {"group delete staff --with-filters", 0, "Deleted group \"staff\".\nDeleted 2 filters.\n", ""},
  });
  EXPECT_EQ(Query("SELECT * FROM groupusers").size(), 1U);
}

TEST_F(Everyday, ADisabledUserIsKeptOutUntilEnabled) {
  Sql("INSERT INTO groupusers VALUES('administrators', 'ann'); UPDATE users SET auth_value = '' WHERE user_id = "
      "'root'");
  Run({
      {"user verify ann --password-stdin", 0, "verified\n", "", "pw\n"},
      {"user verify ann --password-stdin", 1, "refused\n", "", "no\n"},
      {"user verify no --password-stdin", 1, "", "there is no user", "no\n"},
      {"user disable ann", 1, "", "no member of the group \"administrators\" who can log in is left"},
      {"user disable ann --force", 0, "User \"ann\" is now disabled.\n", "no member"},
      {"user disable ann --force", 0, "User \"ann\" was already disabled.\n", ""},
      {"user verify ann --password-stdin", 1, "refused: the user is disabled\n", "", "pw\n"},
  });
  EXPECT_FALSE(Login("ann", "pw"));
  EXPECT_THAT(Tool("lint").out, HasSubstr("perenna-access user enable ann\n"));
  Run({{"user set-password ann --password-stdin", 0,
        "Changed the credential of user \"ann\" (disabled:sha256). The user is still disabled.\n", "", "new\n"},
       {"user enable ann", 0, "User \"ann\" is now enabled.\n", ""}});
  EXPECT_TRUE(Login("ann", "new"));
}

TEST_F(Everyday, ManyUsersAreAddedAtOnceOrNone) {
  const std::string passwords = PathBeside("passwords.csv");
  const std::pair<std::string, std::string> wrong[] = {
      {"user\nx\n", "line 1: the first line must be"},
      {"user_id,groups\nx,staff\nann,staff\n", "-:3: the user \"ann\" exists already; nobody was added"},
      {"user_id,groups\nx,staff\ny,none\n", "-:3: there is no group \"none\"; nobody was added"},
      {"user_id\nx\nx\n", "line 3: the user \"x\" stands in line 2 already"},
      {"user_id,groups\nx\n", "line 2: 1 value where the first line has 2"},
      {"user_id\n\"x\n", "a quotation is not closed"},
      {"user_id\na:b\n", "line 2: the id \"a:b\" holds a colon"},
      {"user_id\n", "there is no user behind it"}};
  const auto before = Query("SELECT * FROM users");
  for (const auto& [csv, error] : wrong) {
    Run({{{"user", "add", "--csv", "-", "--passwords", passwords}, 2, "", error, csv}});
  }
  EXPECT_EQ(Query("SELECT * FROM users"), before);
  EXPECT_EQ(Names(Place()), std::vector<std::string>{"access.db"});
  const std::string csv = "user_id,groups\r\nx,staff;administrators\r\n\"y,\"\"z\",\r\n";
  Run({{{"user", "add", "--csv", "-", "--passwords", passwords, "--group", "staff"},
        0,
        "Added 2 users; their passwords are in \"" + passwords + "\".\n",
        "",
        csv},
       {{"user", "add", "--csv", "-", "--passwords", passwords}, 1, "", "exists already", "user_id\nq\n"}});
  struct stat state {};
  ASSERT_EQ(stat(passwords.c_str(), &state), 0);
  EXPECT_EQ(state.st_mode & 0777U, 0600U);
  const std::string made = Contents(passwords);
  std::smatch parts;
  ASSERT_TRUE(std::regex_match(made, parts,
                               std::regex("user_id,password\r\nx,([a-z2-9-]{24})\r\n\"y,\"\"z\",([a-z2-9-]{24})\r\n")))
      << made;
  EXPECT_TRUE(Login("x", parts[1]) && Login("y,\"z", parts[2]));
  Run({{"user list --group staff --csv --search X", 0,
        "user_id,auth_method,create_date,create_user,groups\r\nx,sha256," +
            Query("SELECT create_date FROM users WHERE user_id = 'x'").front().front() +
            ",root,administrators;staff\r\n",
        ""}});
  const auto added = Json("user add z --generate-password")["added"];
  EXPECT_TRUE(Login("z", added["password"]));
}

TEST_F(Everyday, ExpectationsAreReportedInTheTestAnythingProtocol) {
  Sql("INSERT INTO groupusers VALUES('staff', 'ann')");
  Run({{"check --expect -", 1,
        "TAP version 13\n1..3\nok 1 - allow ann GET /a\nnot ok 2 - allow ann GET /a/b\\#c\n  ---\n  line: 3\n"
        "  reason: \"refused by Deny of group \\\"staff\\\", pattern \\\"^/a/b\\\"\"\n  ...\nok 3 - refuse no PUT /a\n",
        "", "# who may what\nallow ann GET /a\nallow ann GET /a/b#c\n\nrefuse no PUT /a\n"},
       {"check --expect -", 0, "TAP version 13\n1..1\nok 1 - refuse ann PUT /a\n", "", "refuse ann PUT /a\n"},
       {"check --expect -", 2, "", "line 2: \"permit ann GET /a\" is neither", "allow ann GET /a\npermit ann GET /a\n"},
       {"check --expect -", 2, "", "holds no expectation", "# nothing\n"},
       {"check --expect -", 2, "", "line 2: \"nobody can GET /\": \"may\"", "refuse no PUT /a\nnobody can GET /\n"},
       {"check --expect -", 1,
        "TAP version 13\n1..4\nok 1 - nobody may DELETE anywhere\nnot ok 2 - everybody in staff may GET /a and all "
        "below\n"
        "  ---\n  line: 2\n  reason: \"ann GET /a/b is refused\"\n  ...\nok 3 - refuse ann PUT /a\nnot ok 4 - nobody "
        "outside gone may GET /a\n  ---\n  line: 4\n  reason: \"\\\"nobody outside gone may GET /a\\\": there is no "
        "group "
        "\\\"gone\\\"\"\n  ...\n",
        "",
        "nobody may DELETE anywhere\neverybody in staff may GET /a and all below\nrefuse ann PUT /a\nnobody outside "
        "gone may GET /a\n"},
       {"check --stdin --explain", 1,
        "allowed by Allow of group \"staff\", pattern \"^/a(/|$)\"\n"
        "refused by Deny of group \"staff\", pattern \"^/a/b\"\n",
        "", "ann GET /a\nann GET /a/b\n"},
       {"check ann GET /a --matching", 0,
        "allowed by Allow of group \"staff\", pattern \"^/a(/|$)\".\n\n"
        "    GROUP  ACTION  METHOD  NAMED  MATCHES  PART  PATTERN\n"
        "=>  staff  Allow   GET     yes    yes      /a    ^/a(/|$)\n",
        ""}});
}

TEST_F(Everyday, APolicyIsKeptWithoutCredentialsAndComesBackInParts) {
  const std::string policy = PathBeside("policy.json");
  Run({{{"export", "--no-credentials", "--sorted", policy},
        0,
        "Exported 3 users, 2 groups, 1 membership and 2 filters to \"" + policy + "\".\n",
        ""}});
  const std::string text = Contents(policy);
  EXPECT_EQ(text.find("auth_value"), std::string::npos);
  EXPECT_LT(text.find("\"ann\""), text.find("\"root\"")); // stored the other way round
  const auto credentials = Query("SELECT user_id, auth_value FROM users ORDER BY user_id");
  Sql("DELETE FROM filters; INSERT INTO filters VALUES('PUT', 'staff', '^/new', 'Allow'); DELETE FROM groups");
  Run({{{"import", "--only", "filters", "--merge", "--no-backup", policy},
        0,
        "Imported 3 users, 0 groups, 1 membership "
        "and 3 filters. 7 warnings; --verbose or --dry-run show them.\n",
        ""}});
  EXPECT_EQ(Query("SELECT * FROM groups").size(), 0U);
  EXPECT_EQ(Tool({"import", "--only=groups,filters", policy}).status, 0);
  EXPECT_EQ(Query("SELECT * FROM groups").size(), 2U);
  EXPECT_EQ(Query("SELECT * FROM filters").size(), 2U);
  EXPECT_EQ(Tool({"import", policy}).status, 0);
  EXPECT_EQ(Query("SELECT user_id, auth_value FROM users ORDER BY user_id"), credentials);
  EXPECT_EQ(Names(Place()).size(), 4U); // two backups of before
  Sql("DELETE FROM users WHERE user_id = 'bo'");
  Run({{{"import", policy}, 2, "", "users[1]: is a new user without a credential"}});
}

TEST_F(Everyday, ATrailHoldsWhatWasChangedAndNothingElse) {
  const std::string trail = PathBeside("audit.log");
  const auto audited = [&](Arguments arguments, const std::string& input) {
    Arguments all = {"--audit", trail};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return Tool(all, input).status;
  };
  EXPECT_EQ(audited("user list", ""), 0);
  EXPECT_EQ(audited("user delete bo nobody", ""), 1); // rolled back
  EXPECT_EQ(Names(Place()), std::vector<std::string>({"access.db", "audit.log"}));
  EXPECT_EQ(Contents(trail), "");
  EXPECT_EQ(audited("user set-password ann --password-stdin", "new secret\n"), 0);
  EXPECT_EQ(audited("group add ops", ""), 0); // through the module
  EXPECT_EQ(audited("user delete bo", ""), 0);
  EXPECT_EQ(audited({"user", "add", "x", "--password-stdin", "--group", "none"}, "p\n"), 2);
  const std::string text = Contents(trail);
  EXPECT_EQ(text.find("secret"), std::string::npos);
  EXPECT_EQ(text.find("auth_value"), std::string::npos);
  const auto shown = Json({"--audit", trail, "audit", "show"});
  ASSERT_EQ(shown["total"], 3) << text;
  EXPECT_EQ(
      shown["results"][0]["rows"],
      OrderedJson::parse(R"([{"table":"users","before":{"user_id":"ann","auth_method":"plain_pw","create_date":"",)"
                         R"("create_user":"root"},"after":{"user_id":"ann","auth_method":"sha256",)"
                         R"("create_date":"","create_user":"root"},"credential_changed":true}])"));
  EXPECT_EQ(shown["results"][1]["rows"],
            OrderedJson::parse(R"([{"table":"groups","before":null,"after":{"group_id":"ops","group_name":"ops"}}])"));
  EXPECT_EQ(shown["results"][2]["command"], OrderedJson::parse(R"(["user","delete","bo"])"));
  EXPECT_EQ(Json({"--audit", trail, "audit", "show", "--user", "bo"})["total"], 1);
  EXPECT_EQ(Json({"--audit", trail, "audit", "show", "--since", "9999"})["total"], 0);
  Run({{{"--audit", Place(), "user", "disable", "ann"}, 3, "", "nothing was done"},
       {"audit show", 2, "", "which audit trail?"}});
}

} // namespace
} // namespace Testing
