// The user commands.

#include <gmock/gmock.h>

#include "ToolDirectory.h"

namespace Testing {
namespace {

using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;

constexpr const char* Thumbprint = "0123456789abcdef0123456789abcdef01234567";
constexpr const char* ThumbprintBase64 = "ASNFZ4mrze8BI0VniavN7wEjRWc=";

class Users : public ToolDirectory {};

TEST_F(Users, AreAddedChangedAndDeleted) {
  Run({
      {{"group", "add", "editors"}, 0, "Added group \"editors\".\n", ""},
      {{"group", "add", "readers"}, 0, "Added group \"readers\".\n", ""},
      {{"user", "add", "alice", "--password-stdin", "--group", "readers", "--group", "editors"},
       0,
       "Added user \"alice\".\n",
       "",
       "first\n"},
      {{"user", "add", "bob", "--thumbprint", Thumbprint, "--created-by", "alice"}, 0, "Added user \"bob\".\n", ""},
      {{"user", "add", "alice", "--password-stdin"}, 1, "", "the user \"alice\" exists already", "pw\n"},
      {{"user", "set-groups", "alice", "readers", "readers"}, 0, "User \"alice\" is now in: readers.\n", ""},
      {{"user", "set-groups", "bob", "editors"}, 0, "User \"bob\" is now in: editors.\n", ""},
      {{"user", "set-groups", "bob"}, 0, "User \"bob\" is now in: -.\n", ""},
      {{"user", "set-password", "bob", "--password-stdin"},
       0,
       "Changed the credential of user \"bob\" (sha256).\n",
       "",
       "second\n"},
      {{"user", "set-certificate", "alice", "--thumbprint", Thumbprint},
       0,
       "Changed the credential of user \"alice\" (tls_client_certificate).\n",
       ""},
  });
  const auto alice = Json({"user", "show", "alice", "--show-credential"});
  EXPECT_THAT(alice["create_date"].get<std::string>(), MatchesRegex("....-..-..T..:..:..\\+00:00"));
  EXPECT_EQ(alice, (nlohmann::ordered_json{{"user_id", "alice"},
                                           {"auth_method", "tls_client_certificate"},
                                           {"create_date", alice["create_date"]},
                                           {"create_user", "root"},
                                           {"groups", {"readers"}},
                                           {"auth_value", ThumbprintBase64}}));
  EXPECT_EQ(Json({"user", "show", "bob"})["create_user"], "alice");
  EXPECT_FALSE(Login("alice", "first"));
  EXPECT_TRUE(Login("bob", "second"));

  Run({
      {{"user", "delete", "nobody", "bob", "alice"},
       1,
       "Deleted user \"bob\".\nDeleted user \"alice\".\n",
       "there is no user \"nobody\""},
      {{"user", "delete", "root"}, 1, "", "\"root\" is the last user"},
      {{"user", "delete", "root", "--force"}, 0, "Deleted user \"root\".\n", ""},
      {{"user", "add", "alice", "--password-stdin"}, 1, "", "the directory has no user who could create one", "pw\n"},
  });
  EXPECT_EQ(Query("SELECT count(*) FROM groupusers").front().front(), "0");
}

TEST_F(Users, ListsAreTablesOrPagesOfJson) {
  Sql("DELETE FROM users; INSERT INTO users VALUES('ann', 'sha256', 'x', 'then', 'root'), ('bob', 'odd', 'x', '', ''),"
      "('cy', 'plain_pw', 'x', 'now', 'ann'); INSERT INTO groupusers VALUES('g', 'ann'), ('a', 'ann'), ('a', 'ann')");
  Run({{{"user", "list"},
        0,
        "USER  METHOD    CREATED  CREATED BY  GROUPS\n"
        "ann   sha256    then     root        a, g\n"
        "bob   odd                            -\n"
        "cy    plain_pw  now      ann         -\n",
        ""},
       {{"user", "list", "--skip", "1", "--limit", "1"},
        0,
        "USER  METHOD  CREATED  CREATED BY  GROUPS\n"
        "bob   odd                          -\n"
        "1 of 3 users\n",
        ""},
       {{"user", "show", "ann"},
        0,
        "User        ann\nMethod      sha256\nCreated     then\nCreated by  root\nGroups      a, g\n",
        ""}});
  const auto page = Json({"user", "list", "--skip", "2", "--limit", "5"});
  EXPECT_EQ(page, nlohmann::ordered_json::parse(
                      R"({"skip":2,"limit":3,"total":3,"results":[{"user_id":"cy","auth_method":"plain_pw",)"
                      R"("create_date":"now","create_user":"ann","groups":[]}]})"))
      << page;
}

TEST_F(Users, RefusalsNameTheOptionAndChangeNothing) {
  const std::string before = Contents(File());
  Run({
      {{"user", "add", "a", "--password-stdin", "--group", "none"},
       2,
       "",
       "--group: there is no group \"none\"",
       "pw\n"},
      {{"user", "add", "a", "--password-stdin", "--created-by", "b"},
       2,
       "",
       "--created-by: there is no user \"b\"",
       "pw\n"},
      {{"user", "add", ""}, 2, "", "USER: the value is empty"},
      {{"user", "add", "a"}, 2, "", "no terminal to ask for a password at"},
      {{"user", "add", "a:b"}, 2, "", "\"a:b\" holds a colon: HTTP Basic"},
      {{"user", "add", "a\x7f"}, 2, "", "\"a\\x7f\" holds a control character"},
      {{"user", "add", "a "}, 2, "", "ends with a space"},
      {{"user", "add", "root"}, 1, "", "exists already"}, // before it asks
      {{"user", "show", "a"}, 1, "", "there is no user \"a\""},
      {{"user", "set-groups", "a"}, 1, "", "there is no user \"a\""},
      {{"user", "set-groups", "root", "none"}, 1, "", "there is no group \"none\""},
      {{"user", "set-password", "a", "--password-stdin"}, 1, "", "there is no user \"a\"", "pw\n"},
      {{"user", "set-password", "root", "--password-stdin"}, 2, "", "standard input is empty", "\n"},
      {{"user", "set-certificate", "root"}, 2, "", "Give --certificate FILE or --thumbprint TEXT"},
      {{"user", "list", "--limit", "-1"}, 2, "", "--limit: \"-1\" is not a whole number from 0 to 2147483647"},
      {{"user", "list", "--skip", "2147483648"}, 2, "", "--skip: \"2147483648\" is not a whole number"},
      {{"user", "delete", "[root]", "{}", "[a,root]"}, 1, "", "there is no user \"[a,root]\""},
  });
  EXPECT_TRUE(Contents(File()) == before);
}

TEST_F(Users, IdsOfEveryByteAreShownSafelyAndFoundAgain) {
  const struct {
    std::string id;
    std::string shown;
    std::string json;
  } cases[] = {
      {"z\xc3\xbcrich", "z\\u{fc}rich", R"("z\u00fcrich")"},
      {"\x1b]0;owned\x07", "\\x1b]0;owned\\x07", R"("\u001b]0;owned\u0007")"},
      {"a\\x1b", "a\\\\x1b", R"("a\\x1b")"},
      {"line\nbreak", "line\\nbreak", R"("line\nbreak")"},
      {"\xc0\xaf", "\\xc0\\xaf", R"({"base64":"wK8="})"},
      {"\xd0\xb0lice", "\\u{430}lice", R"("\u0430lice")"}, // not a Latin a
      {"\x9b"
       "31m",
       "\\x9b31m", R"({"base64":"mzMxbQ=="})"}, // a control sequence of eight-bit terminals
      {"-rf", "-rf", R"("-rf")"},
      {"[a,b]", "[a,b]", R"("[a,b]")"},
      {"$(id)", "$(id)", "\"$(id)\""},
  };
  for (const auto& [id, shown, json] : cases) {
    Run({{{"user", "add", "--unchecked", "--password-stdin", "--", id},
          0,
          "Added user \"" + shown + "\".\n",
          "",
          "pw\n"},
         {{"user", "set-groups", "--", id}, 0, "User \"" + shown + "\" is now in: -.\n", ""}});
    EXPECT_TRUE(Login(id, "pw")) << shown;
    EXPECT_THAT(Tool({"user", "show", "--", id}).out, HasSubstr("User        " + shown + "\n"));
    EXPECT_THAT(Tool({"user", "list"}).out, HasSubstr("\n" + shown + " "));
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
  const std::vector<std::vector<std::string>> commands = {{"user", "list"},
                                                          {"user", "show", evil, "--show-credential"},
                                                          {"user", "add", evil},
                                                          {"group", "list"},
                                                          {"group", "show", evil},
                                                          {"group", "delete", evil + "x"},
                                                          {"filter", "list"},
                                                          {"filter", "list", "--group", evil},
                                                          {"filter", "test", evil, evil},
                                                          {"filter", "add", evil, evil, evil, evil},
                                                          {"check", evil, "GET", evil, "--explain"},
                                                          {"check", evil, evil, evil},
                                                          {"methods", evil, "/" + evil},
                                                          {"user", evil},
                                                          {"--" + evil},
                                                          {"complete", "--", "user", "show", ""},
                                                          {"--config", evil, "user", "list"},
                                                          {"user", "list", "--limit", evil},
                                                          {"help", evil},
                                                          {"lint"}};
  for (const auto& command : commands) {
    for (const char* const form : {"text", "json"}) {
      std::vector<std::string> arguments = command;
      if (form == std::string("json")) {
        arguments.insert(arguments.begin(), "--json");
      }
      const ToolResult result = Tool(arguments);
      for (const char byte : result.out + result.err) {
        ASSERT_TRUE(byte == '\n' || byte == '\t' || (byte >= ' ' && byte < 0x7f))
            << ::testing::PrintToString(arguments) << " printed byte " << static_cast<int>(byte) << "\n"
            << ::testing::PrintToString(result.out + result.err);
      }
    }
  }
}

TEST_F(Users, PasswordsShowNowhere) {
  const std::string secret = "correct horse";
  ToolProcess tool(File(), {"user", "set-password", "root", "--password-stdin", "--verbose"});
  tool.Write(secret); // no line end yet: it waits
  const std::string process = "/proc/" + std::to_string(tool.Id());
  for (const char* const file : {"/cmdline", "/environ"}) {
    EXPECT_THAT(Contents(process + file), Not(HasSubstr("horse"))) << file;
  }
  const ToolResult done = tool.Finish();
  EXPECT_EQ(done.status, 0);
  EXPECT_THAT(done.out + done.err, Not(HasSubstr("horse")));
  EXPECT_THAT(Contents(File()), Not(HasSubstr("horse")));
  EXPECT_TRUE(Login("root", secret));
}

} // namespace
} // namespace Testing
