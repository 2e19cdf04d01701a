// The commands check and methods, one request at a time and as a stream.

#include <gmock/gmock.h>

#include "ToolDirectory.h"

namespace Testing {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

class Check : public ToolDirectory {
protected:
  void SetUp() override {
    ToolDirectory::SetUp();
    Sql("INSERT INTO groups VALUES('editors', 'e'), ('guests', 'g');"
        "INSERT INTO groupusers VALUES('editors', 'ann'), ('guests', 'ann'), ('guests', 'an n'), ('empty', 'eve');"
        "INSERT INTO users SELECT column1, 'plain_pw', 'x', '', '' FROM (VALUES('ann'), ('an n'), ('bob'), ('eve'));"
        "INSERT INTO filters VALUES('GET', 'guests', '^/a', 'Allow'), ('GET', 'editors', 'secret', 'Deny'),"
        "('PUT', 'editors', '^/a', 'Allow'), ('PUT', 'guests', '^/a', 'allow'), ('GET', 'guests', '(', 'Allow')");
  }
};

TEST_F(Check, AnswersByTextAndByExitStatus) {
  Run({
      {"check ann GET /a/1", 0, "allowed\n", ""},
      {"check ann GET /a/secret", 1, "refused\n", ""},
      {{"check", "an n", "PUT", "/a"}, 1, "refused\n", ""},
      {"check nobody GET /a", 1, "refused\n", "warning: there is no user \"nobody\""},
      {"check ann get /a", 2, "", "METHOD: \"get\" is none of OPTIONS, HEAD, GET"},
      {"check ann GET", 2, "", "which request? Give USER METHOD TARGET, or --stdin"},
      {"check ann --stdin", 2, "", "--stdin takes neither a request nor --matching"},
      {"methods ann /a", 0, "GET\nPUT\n", ""},
      {"methods ann /a/secret", 0, "PUT\n", ""},
      {"methods bob /a", 1, "", ""},
      {"methods nobody /a", 1, "", "warning: there is no user \"nobody\""},
  });
  Sql("INSERT INTO groupusers VALUES('guests', 'gone')"); // its memberships still grant
  Run({{"check gone GET /a", 0, "allowed\n", "warning: there is no user \"gone\""}});
  EXPECT_EQ(Json("check gone GET /a")["user_exists"], false);
  EXPECT_EQ(Json("methods gone /a")["user_exists"], false);
}

TEST_F(Check, ExplainsWhichFilterDecided) {
  Run({
      {"check ann GET /a/secret --explain", 1,
       "refused by Deny of group \"editors\", pattern \"secret\".\n\n"
       "    GROUP    ACTION  METHOD  NAMED  MATCHES  PART    PATTERN\n"
       "=>  editors  Deny    GET     yes    yes      secret  secret\n"
       "    guests   Allow   GET     yes    yes      /a      ^/a\n"
       "    editors  Allow   PUT     no     yes      /a      ^/a\n"
       "    guests   allow   PUT     no     yes      /a      ^/a\n"
       "    guests   Allow   GET     yes    no       -       (\n",
       ""},
      {"check bob GET /a --explain", 1, "refused: the user is in no group.\n", ""},
      {"check eve GET /a --explain", 1, "refused: the user's groups have no filter.\n", ""},
      {"check nobody GET /a --explain", 1, "refused: there is no such user.\n", "no user \"nobody\""},
  });
  EXPECT_THAT(Tool("check ann HEAD /a --explain").out, HasSubstr("refused by default: no Allow or Deny"));
  const auto explained = Json({"check", "an n", "GET", "/a\n", "--explain"});
  EXPECT_EQ(explained, nlohmann::ordered_json::parse(R"json({"user_id":"an n","user_exists":true,"method":"GET",
    "url":"/a\n","allowed":true,"reason":"allowed by Allow of group \"guests\", pattern \"^/a\"","groups":["guests"],
    "filters":[{"group_id":"guests","method":"GET","filter":"^/a","action":"Allow","names_method":true,"matches":true,"part":"/a","undecided":false,"decides":true},
    {"group_id":"guests","method":"PUT","filter":"^/a","action":"allow","names_method":false,"matches":true,"part":"/a","undecided":false,"decides":false},
    {"group_id":"guests","method":"GET","filter":"(","action":"Allow","names_method":true,"matches":false,"part":null,"undecided":false,"decides":false}]})json"))
      << explained.dump(2);
}

TEST_F(Check, AStreamIsAnsweredLineByLineInOrder) {
  Run({
      {"check --stdin", 2, "", "standard input holds no request"},
      {"check --stdin", 0, "allowed\nallowed\n", "", "an n GET /a\nann PUT /a?x=y"},
      {"check --stdin", 1, "allowed\nrefused\nallowed\n", "", "ann GET /a\nann GET /a/secret\nann GET /a\r\n"},
      {"check --stdin", 1, "allowed\nrefused\n", "line 2: there is no user \"no\"", "ann GET /a\nno GET /a\n"},
      {"check --stdin", 2, "invalid\nallowed\ninvalid\ninvalid\ninvalid\n",
       "line 1: \"ann get /a\" is not \"USER METHOD TARGET\"", "ann get /a\nann GET /a\nGET /a\n\nann GET \n"},
      {"check --stdin --json", 2,
       "{\"line\":1,\"valid\":true,\"user_exists\":true,\"allowed\":true}\n{\"line\":2,\"valid\":false}\n",
       R"({"error":{"kind":"usage","status":2,"message":"\"\\x1b[2J\" is not \"USER METHOD TARGET\" with a known)",
       "ann GET /a\n\x1b[2J\n"},
  });
  std::string questions;
  std::string answers;
  for (int i = 0; i < 3000; ++i) {
    questions += i % 7 == 0 ? "ann GET /a/" + std::string(100, 'x') + "\n" : "ann PUT /b\n";
    answers += i % 7 == 0 ? "allowed\n" : "refused\n";
  }
  EXPECT_TRUE(Tool("check --stdin", questions).out == answers);
  Run({{"check --stdin", 2, "allowed\n", "longer than 2 MiB", "ann GET /a\nann GET /" + std::string(3 << 20, 'a')}});
}

TEST_F(Check, AStreamAnswersBeforeItWaitsAndSeesChanges) {
  ToolProcess stream(File(), {"check", "--stdin"});
  stream.Write("ann GET /a\nann GET /a/se");
  EXPECT_EQ(stream.ReadLine(), "allowed");
  Run({{"filter delete editors Deny GET secret", 0, "Deleted 1 filter.\n", ""}});
  stream.Write("cret\n");
  EXPECT_EQ(stream.ReadLine(), "allowed");
  EXPECT_EQ(stream.Finish().status, 0);
}

TEST_F(Check, ColoursAndTheWidthOfTablesFollowTheTerminal) {
  Sql("INSERT INTO filters VALUES('GET', 'z', '^/" + std::string(99, 'x') + "', 'Allow')");
  const struct {
    std::string terminal; // what is said to the shell before the tool is run in it
    std::string arguments;
    bool coloured;
    bool cut;
  } cases[] = {
      {"export NO_COLOR=", "check ann GET /a --explain", true, false}, // as if it were not set
      {"export NO_COLOR=1", "check ann GET /a --explain", false, false},
      {"export NO_COLOR=1", "check ann GET /a --explain --color=always", true, false},
      {"export TERM=dumb", "check ann GET /a --explain", false, false},
      {"stty cols 45", "filter list --color=never", false, true},
      {"stty cols 45", "filter list --wide --color=never", false, false},
  };
  for (const auto& [terminal, arguments, coloured, cut] : cases) {
    SCOPED_TRACE(testing::Message() << terminal << "; " << arguments);
    std::string line = "export TERM=xterm; ";
    line.append(terminal).append("; \"$0\" -d \"$1\" ").append(arguments);
    const ToolResult result = RunAtTerminal({"/bin/sh", "-c", line, PERENNA_ACCESS_TOOL, File()}, {});
    EXPECT_EQ(result.out.find("\x1b[32mAllow\x1b[0m") != std::string::npos, coloured) << result.out;
    EXPECT_EQ(result.out.find("...\r\n(cut to the width of the terminal; --wide shows all)") != std::string::npos, cut);
    EXPECT_EQ(result.out.find(std::string(50, 'x')) != std::string::npos, !cut && arguments.rfind("filter", 0) == 0)
        << result.out;
  }
  EXPECT_THAT(Tool("check ann GET /a --explain").out, Not(HasSubstr("\x1b")));
}

} // namespace
} // namespace Testing
