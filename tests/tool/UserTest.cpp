// The user commands.

#include <array>
#include <regex>
#include <tuple>

#include <gmock/gmock.h>

#include "ToolDirectory.h"

namespace Testing {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

constexpr const char* Thumbprint = "0123456789abcdef0123456789abcdef01234567";
constexpr const char* ThumbprintBase64 = "ASNFZ4mrze8BI0VniavN7wEjRWc=";

class Users : public ToolDirectory {};

TEST_F(Users, AreAddedChangedAndDeleted) {
  Sql("INSERT INTO groups VALUES('editors', 'e'), ('readers', 'r')");
  Run({
      {"user add alice --password-stdin --group readers --group editors", 0, "Added user \"alice\".\n", "", "first\n"},
      {{"user", "add", "bob", "--thumbprint", Thumbprint, "--created-by", "alice"}, 0, "Added user \"bob\".\n", ""},
      {"user set-groups alice readers readers", 0, "User \"alice\" is now in: readers.\n", ""},
      {"user set-groups bob editors", 0, "User \"bob\" is now in: editors.\n", ""},
      {"user set-groups bob --none", 0, "User \"bob\" is now in: -.\n", ""},
      {"user set-password bob --password-stdin", 0, "Changed the credential of user \"bob\" (sha256).\n", "",
       "second\n"},
      {{"user", "set-certificate", "alice", "--thumbprint", Thumbprint},
       0,
       "Changed the credential of user \"alice\" (tls_client_certificate).\n",
       ""},
  });
  const auto alice = Json("user show alice --show-credential");
  EXPECT_EQ(alice, (nlohmann::ordered_json{{"user_id", "alice"},
                                           {"auth_method", "tls_client_certificate"},
                                           {"create_date", alice["create_date"]},
                                           {"create_user", "root"},
                                           {"groups", {"readers"}},
                                           {"thumbprint", Thumbprint},
                                           {"auth_value", ThumbprintBase64}}));
  EXPECT_EQ(Json("user show bob")["create_user"], "alice");
  EXPECT_FALSE(Login("alice", "first"));
  EXPECT_TRUE(Login("bob", "second"));
  Run({
      {"user delete bob nobody alice", 1, "", "there is no user \"nobody\"; nothing was deleted"},
      {"user delete bob alice bob", 0, "Deleted user \"alice\".\nDeleted user \"bob\".\n", ""},
      {"user delete root", 1, "", "after this, no user is left; --force does it all the same"},
      {"user delete root --force", 0, "Deleted user \"root\".\n", "warning: no user is left"},
      {"user add alice --password-stdin", 1, "", "the directory has no user who could create one", "pw\n"},
  });
  EXPECT_EQ(Query("SELECT count(*) FROM groupusers").front().front(), "0");
}

TEST_F(Users, ListsAreTablesOrPagesOfJson) {
  Sql("DELETE FROM users; INSERT INTO users VALUES('ann', 'sha256', 'x', 'then', 'root'), ('bob', 'odd', 'x', '', ''),"
      "('cy', 'plain_pw', 'x', 'now', 'ann'); INSERT INTO groupusers VALUES('g', 'ann'), ('a', 'ann'), ('a', 'ann')");
  Run({{"user list --limit 2", 0,
        "USER  METHOD  CREATED  CREATED BY  GROUPS\n"
        "ann   sha256  then     root        a, g\n"
        "bob   odd                          -\n"
        "2 of 3 users\n",
        ""}});
  const auto page = Json("user list --skip 2 --limit 5");
  EXPECT_EQ(page, nlohmann::ordered_json::parse(
                      R"({"skip":2,"limit":3,"total":3,"results":[{"user_id":"cy","auth_method":"plain_pw",)"
                      R"("create_date":"now","create_user":"ann","groups":[]}]})"))
      << page;
}

TEST_F(Users, TheLastWhoMayAdministerIsNotLostByAccident) {
  const std::string a64(64, 'a');
  const std::tuple<std::string, std::string, bool> second[] = {{"sha256", "salt:" + a64, true},
                                                               {"sha256", "salt:" + std::string(64, 'A'), false},
                                                               {"sha256", a64, false},
                                                               {"tls_client_certificate", ThumbprintBase64, true},
                                                               {"tls_client_certificate", Thumbprint, false},
                                                               {"plain_pw", "x", true},
                                                               {"plain_pw", "", false},
                                                               {"SHA256", "salt:" + a64, false}};
  Sql("INSERT INTO groups VALUES('administrators', 'a'), ('ops', 'o'); INSERT INTO groupusers VALUES('ops', 'root'),"
      "('administrators', 'root'), ('administrators', 'second'), ('administrators', 'gone');"
      "INSERT INTO users VALUES('second', '', '', '', ''), ('other', 'plain_pw', 'x', '', '')");
  const std::string left = "after this, no member of the group \"administrators\" who can log in is left: nobody may";
  for (const auto& [method, value, counts] : second) {
    Query("UPDATE users SET auth_method = ?1, auth_value = ?2 WHERE user_id = 'second'", {method, value});
    Run({counts ? Step{"group set-members administrators second", 0,
                       "Group \"administrators\" now has the members: second.\n", ""}
                : Step{"group set-members administrators second", 1, "", left}});
    Sql("INSERT INTO groupusers SELECT 'administrators', 'root' WHERE NOT EXISTS (SELECT 1 FROM groupusers WHERE "
        "group_id = 'administrators' AND user_id = 'root')");
  }
  Run({{"user delete other root", 1, "", left},
       {"user set-groups root ops", 1, "", left},
       {"group delete administrators", 1, "", left},
       {"group delete ops --administrators ops", 1, "", "no member of the group \"ops\""},
       {"user delete second other", 0, "Deleted user \"other\".\nDeleted user \"second\".\n", ""}});
  EXPECT_EQ(Query("SELECT user_id FROM users").size(), 1U);
  EXPECT_EQ(Json("user set-groups root --none --force")["warnings"].size(), 1U);
  Run({{"group delete administrators", 0, "Deleted group \"administrators\".\n", ""}}); // none was left before
}

TEST_F(Users, RefusalsNameTheOptionAndChangeNothing) {
  const std::string before = Contents(File());
  Run({
      {"user add a --password-stdin --group none", 2, "", "--group: there is no group \"none\"", "p\n"},
      {"user add a --password-stdin --created-by b", 2, "", "--created-by: there is no user", "p\n"},
      {{"user", "add", ""}, 2, "", "USER: the value is empty"},
      {"user add a", 2, "", "no terminal to ask for a password at"},
      {"user add a:b", 2, "", "\"a:b\" holds a colon: HTTP Basic"},
      {{"user", "add", "a\x7f"}, 2, "", "\"a\\x7f\" holds a control character"},
      {{"user", "add", "a "}, 2, "", "ends with a space"},
      {"user add root", 1, "", "exists already"}, // before it asks
      {"user show a", 1, "", "there is no user \"a\""},
      {"user set-groups a --none", 1, "", "there is no user \"a\""},
      {"user set-groups root", 2, "", "which GROUP? Name one or more, or give --none"},
      {"user set-groups root x --none", 2, "", "--none and GROUP cannot be given together"},
      {"user set-groups root none", 1, "", "there is no group \"none\""},
      {"user set-password a --password-stdin", 1, "", "there is no user \"a\"", "pw\n"},
      {"user set-password root --password-stdin", 2, "", "standard input is empty", "\n"},
      {"user set-certificate root", 2, "", "Give --certificate FILE or --thumbprint TEXT"},
      {"user list --limit -1", 2, "", "--limit: \"-1\" is not a whole number from 0 to 2147483647"},
      {"user list --skip 2147483648", 2, "", "--skip: \"2147483648\" is not a whole number"},
      {"user delete [root] {} [a,root]", 1, "", "no user \"[a,root]\", \"[root]\", \"{}\""},
      {"user show a --json", 1, "", R"({"error":{"kind":"refused","status":1,"message":"there is no user \"a\""}})"},
  });
  EXPECT_TRUE(Contents(File()) == before);
}

TEST_F(Users, IdsOfEveryByteAreShownSafelyAndFoundAgain) {
  const std::array<std::string, 3> cases[] = {
      {"z\xc3\xbcrich", "z\\u{fc}rich", R"("z\u00fcrich")"},
      {"a\\x1b", "a\\\\x1b", R"("a\\x1b")"},
      {"\xc0\xaf", "\\xc0\\xaf", R"({"base64":"wK8="})"},
      {"\xd0\xb0lice", "\\u{430}lice", R"("\u0430lice")"}, // not a Latin a
      {"-rf", "-rf", R"("-rf")"},
      {"[a,b]", "[a,b]", R"("[a,b]")"},
  };
  for (const auto& [id, shown, json] : cases) {
    EXPECT_EQ(Tool({"user", "add", "--unchecked", "--password-stdin", "--", id}, "pw\n").out,
              "Added user \"" + shown + "\".\n");
    EXPECT_TRUE(Login(id, "pw")) << shown;
    EXPECT_THAT(Tool("user list").out, HasSubstr("\n" + shown + " "));
    EXPECT_EQ(Json({"user", "show", "--", id})["user_id"], nlohmann::ordered_json::parse(json));
    Run({{{"user", "delete", "--", id}, 0, "Deleted user \"" + shown + "\".\n", ""}});
  }
}

TEST_F(Users, TextsStoredBySqlNeverDriveTheTerminal) {
  const std::string evil = "\x1b[2J\x1b]52;c;ZXZpbA==\x07\x9b\x7f\r\b";
  BareDatabase database(File());
  database.Query("INSERT INTO users VALUES(?1, ?1, ?1, ?1, ?1)", {evil});
  database.Query("INSERT INTO groups VALUES(?1, ?1)", {evil});
  database.Query("INSERT INTO groupusers VALUES(?1, ?1)", {evil});
  database.Query("INSERT INTO filters VALUES('GET', ?1, ?2, 'Allow'), (?1, ?1, ?1, ?1)", {evil, "^/" + evil});
  for (const std::string line : {"user list",
                                 "user show @ --show-credential",
                                 "user add @",
                                 "user delete x@",
                                 "group list",
                                 "group show @",
                                 "group delete x@",
                                 "filter list",
                                 "filter list --group @",
                                 "filter test @ @",
                                 "filter add @ @ @ @",
                                 "check @ GET @ --explain",
                                 "check @ @ @",
                                 "methods x@ /@",
                                 "user @",
                                 "--@",
                                 "complete -- user show",
                                 "--config @ user list",
                                 "user list --limit @",
                                 "help @",
                                 "lint"}) {
    for (const std::string form : {"--verbose ", "--json "}) {
      Arguments arguments = (form + line).c_str();
      for (std::string& argument : arguments) {
        argument = std::regex_replace(argument, std::regex("@"), evil);
      }
      const ToolResult result = Tool(arguments);
      for (const char byte : result.out + result.err) {
        ASSERT_TRUE(byte == '\n' || byte == '\t' || (byte >= ' ' && byte < 0x7f))
            << line << ::testing::PrintToString(result.out + result.err);
      }
    }
  }
}

TEST_F(Users, PasswordsShowNowhere) {
  const std::string secret = "correct horse";
  ToolProcess tool(File(), {"user", "set-password", "root", "--password-stdin", "--verbose"});
  tool.Write(secret); // no line end yet: it waits
  const std::string process = "/proc/" + std::to_string(tool.Id());
  EXPECT_THAT(Contents(process + "/cmdline") + Contents(process + "/environ"), Not(HasSubstr("horse")));
  const ToolResult done = tool.Finish();
  EXPECT_EQ(done.status, 0);
  const ToolResult cancelled =
      RunToolAtTerminal(File(), {"user", "set-password", "root"}, {{"New password", "ho\x03"}});
  EXPECT_EQ(cancelled.status, 130);
  EXPECT_EQ(cancelled.out, "New password for \"root\": \r\nperenna-access: cancelled\r\n");
  EXPECT_THAT(done.out + done.err + Contents(File()), Not(HasSubstr("horse")));
  EXPECT_TRUE(Login("root", secret));
}

} // namespace
} // namespace Testing
