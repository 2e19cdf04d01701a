// Files that were not exported, or were changed since: what is refused, what is warned of, and what is shown of it.

#include <filesystem>

#include "DirectoryFiles.h"

namespace Testing {
namespace {

using ImportFile = Transfer;

TEST_F(ImportFile, EveryErrorOfAFileIsNamedWithItsPathAndNothingIsWritten) {
  const auto before = ReadContents(m_Database);
  const std::vector<std::pair<std::string, std::string>> files = {
      {"[]", " "},
      {"{}", " format version users groups memberships filters"},
      {R"({"format":"other","version":2,"users":{"a":[{}]},"groups":null,"memberships":1,"filters":"x","more":[{}]})",
       " format version users groups memberships filters \"more\""},
      {Document(User("root")).insert(1, R"("users":[7],)"), " users[0] users"},
      {Document("").insert(1, R"("version":1,"odd":1,"format":1,)"), " \"odd\" format format version"},
      {Document(User("a", R"(,"user_id":"b","extra":{"x":[1,{}]})") + R"(,7,[[]],{"user_id":true},)" +
                R"({"user_id":{"base64":"%"},"auth_method":{},"auth_value":{"base64":"YQ==","more":1},)" +
                R"("create_date":["x"],"create_user":{"base64":3}})"),
       " users[0].user_id users[0] users[1] users[2] users[3].user_id users[3].auth_method"
       " users[3].create_date users[3].create_user users[4].user_id users[4].auth_method users[4].auth_value"
       " users[4].create_date users[4].create_user"},
      {Document(User("a") + "," + User("b") + ",5," + User("a"),
                R"({"group_id":"g","group_name":"1"},{"group_id":"g","group_name":"2"},{"group_id":"g"})"),
       " users[2] groups[2].group_name users[3].user_id groups[1].group_id"},
      {Document(""), " users"}};
  for (const auto& [text, paths] : files) {
    const ToolResult result = Tool({"import", "--json", "-"}, text);
    EXPECT_EQ(result.status, 2) << text;
    EXPECT_EQ(Paths(Json::parse(result.out).at("errors")), paths) << text << '\n' << result.out;
    EXPECT_EQ(ReadContents(m_Database), before) << text;
  }

  std::string many = "1";
  for (int i = 1; i < 150; ++i) {
    many += ",1";
  }
  const std::string report = Tool({"import", "-"}, Document(many)).err;
  EXPECT_NE(report.find("150 errors"), std::string::npos) << report;
  EXPECT_NE(report.find("and 50 more"), std::string::npos) << report;
}

TEST_F(ImportFile, SyntaxErrorsSayWhereAndQuoteNothing) {
  const std::string secret = "0123456789abcdef";
  const std::vector<std::pair<std::string, std::string>> files = {
      {"", "line 1, column 0"},
      {"{\"format\":\n\"perenna-access\"\n\"version\"", "line 3, column 9"},
      {"{\"users\":[{\"user_id\":\"\xc3\xa9\",\n \"auth_value\":\"" + secret + "\n\"}", "line 2, column 32"},
      {"{\"users\":[{\"user_id\":\"\xc3\xa9\", \"auth_value\":\"" + secret + "\xff\"}", "line 1, column 57"},
      {"{\"version\":1e9999}", "line 1, column 18"},
      {Document(User("root")) + "\n}", "line 2, column 1"},
      {std::string(100000, '['), "line 1, column 100000"}};
  for (const auto& [text, position] : files) {
    const ToolResult result = Tool({"import", "-"}, text);
    EXPECT_EQ(result.status, 2) << text;
    EXPECT_NE(result.err.find(position + ": "), std::string::npos) << text << '\n' << result.err;
    EXPECT_EQ(result.err.find(secret), std::string::npos) << result.err;
  }
}

TEST_F(ImportFile, WhatADirectoryMayHoldIsWarnedOfAndRefusedOnlyWhenAskedTo) {
  const auto user = [](const std::string& id, const std::string& method, const std::string& value) {
    return R"(,{"user_id":")" + id + R"(","auth_method":")" + method + R"(","auth_value":")" + value +
           R"(","create_date":"2026-02-03T23:59:60+00:00","create_user":"root"})";
  };
  const std::string good =
      user("1", "plain_pw", "x") + user("2", "tls_client_certificate", "AAECAwQFBgcICQoLDA0ODxAREhM=");
  const std::string text = Document(
      User("root") + good + user("", "plain_pw", "") + user(R"(a\u0000b)", "SHA256", Digest) +
          user("5", "sha256", std::string(Digest).replace(40, 1, "A")) +
          user("6", "tls_client_certificate", "AAECAwQFBgcICQoLDA0ODxAREhN=") +
          R"(,{"user_id":"7","auth_method":"plain_pw","auth_value":"x","create_date":"2026-13-01T00:00:00+00:00",)" +
          R"("create_user":"nobody"})",
      R"({"group_id":"g","group_name":"G"},{"group_id":"","group_name":""},{"group_id":"a b","group_name":"x"})",
      R"({"group_id":"g","user_id":"root"},{"group_id":"none","user_id":"none"},{"group_id":"g","user_id":"root"})",
      R"({"method":"GET","group_id":"g","filter":"^/x","action":"Allow"},)"
      R"({"method":"get","group_id":"none","filter":"(","action":"allow"},)"
      R"({"method":"GET","group_id":"g","filter":"","action":"Deny"},)"
      R"({"method":"GET","group_id":"g","filter":"^/x","action":"Allow"})");
  const std::string expected =
      " users[3].user_id users[3].auth_value users[4].user_id users[4].auth_method users[5].auth_value"
      " users[6].auth_value users[7].create_date groups[1].group_id groups[1].group_name groups[2].group_id"
      " memberships[1].group_id memberships[1].user_id filters[1].method filters[1].group_id filters[1].filter"
      " filters[1].action filters[2].filter memberships[2] filters[3]";
  const ToolResult strict = Tool({"import", "--json", "--strict", "-"}, text);
  EXPECT_EQ(strict.status, 2);
  EXPECT_EQ(Paths(Json::parse(strict.out).at("errors")), expected) << strict.out;
  EXPECT_EQ(ReadContents(m_Database)[0].size(), 1U);

  const ToolResult imported = Tool({"import", "--json", "-"}, text);
  // A creator may have been deleted since: no error, however strict.
  EXPECT_EQ(Paths(Json::parse(imported.out).at("warnings")), expected + " users[7].create_user") << imported.out;
  EXPECT_EQ(imported.out.find(Digest), std::string::npos) << imported.out;
  EXPECT_EQ(ReadContents(m_Database)[0].size(), 8U);

  const ToolResult told = Tool({"import", "--verbose", "-"}, text);
  EXPECT_NE(told.err.find("filters[1].filter: \"(\" is not a POSIX extended regular"), std::string::npos) << told.err;
}

TEST_F(ImportFile, ADryRunShowsTheDifferenceWithoutCredentialsAndWritesNothing) {
  Fill(std::string("INSERT INTO users VALUES('root','sha256','") + Digest +
       "','2026-01-02T03:04:05+00:00','root'),"
       "('bob','plain_pw','hunter2','2026-01-02T03:04:05+00:00','root');"
       "INSERT INTO groups VALUES('g','Old'); INSERT INTO groupusers VALUES('g','bob'),('g','bob'),('g','root');"
       "INSERT INTO filters VALUES('GET','g','^/x','Allow')");
  const std::string file = Document(
      R"({"user_id":"root","auth_method":"plain_pw","auth_value":"hunter3","create_date":"2026-01-02T03:04:05+00:00",)"
      R"("create_user":"al"},)" +
          User("al"),
      R"({"group_id":"g","group_name":"New"})", R"({"group_id":"g","user_id":"root"},{"group_id":"g","user_id":"bob"})",
      R"({"method":"GET","group_id":"g","filter":"^/x","action":"Allow"},)"
      R"({"method":"GET","group_id":"g","filter":"^/\\d","action":"Deny"})");
  const std::string before = Slurp(m_Database);
  const ToolResult json = Tool({"import", "--dry-run", "--json", "-"}, file);
  EXPECT_EQ(json.status, 0);
  EXPECT_EQ(Json::parse(json.out).at("difference"), Json::parse(R"({
    "users": {
      "added": [{"user_id":"al","auth_method":"sha256","create_date":"2026-01-02T03:04:05+00:00","create_user":"root"}],
      "removed": [{"user_id":"bob","auth_method":"plain_pw","create_date":"2026-01-02T03:04:05+00:00",
                   "create_user":"root"}],
      "changed": [{"user_id":"root","changes":{"auth_method":{"from":"sha256","to":"plain_pw"},"credential":"changed",
                                               "create_user":{"from":"root","to":"al"}}}],
      "unchanged": 0},
    "groups": {"added":[],"removed":[],"changed":[{"group_id":"g","changes":{"group_name":{"from":"Old","to":"New"}}}],
               "unchanged":0},
    "memberships": {"added":[],"removed":[{"group_id":"g","user_id":"bob"}],"unchanged":2},
    "filters": {"added":[{"method":"GET","group_id":"g","filter":"^/\\d","action":"Deny"}],"removed":[],"unchanged":1}
  })"))
      << json.out;
  const ToolResult text = Tool({"import", "--dry-run", "-"}, file);
  EXPECT_NE(text.out.find(R"(~  root  auth_method "sha256" -> "plain_pw", credential changed)"), std::string::npos)
      << text.out;
  for (const char* const secret : {"hunter", Digest}) {
    EXPECT_EQ((json.out + text.out).find(secret), std::string::npos) << json.out << text.out;
  }
  EXPECT_EQ(Slurp(m_Database), before) << "the database file changed";
}

TEST_F(ImportFile, AFileWithoutUsersIsImportedOnlyByForceAndUnreadableOnesNever) {
  EXPECT_EQ(Tool({"import", "-"}, Document("")).status, 2);
  EXPECT_EQ(Tool({"import", m_Place.File("absent")}).status, 2);
  EXPECT_EQ(Tool({"import", m_Place.Path()}).status, 2);
  EXPECT_EQ(ReadContents(m_Database)[0].size(), 1U);
  EXPECT_EQ(RunTool(m_Place.File("absent.db"), {"import", "-"}, Document(User("root"))).status, 3);
  EXPECT_FALSE(std::filesystem::exists(m_Place.File("absent.db")));
  EXPECT_EQ(Tool({"import", "--force", "-"}, Document("")).status, 0);
  EXPECT_TRUE(ReadContents(m_Database)[0].empty());
}

} // namespace
} // namespace Testing
