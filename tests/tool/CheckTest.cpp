// The commands check and methods, one request at a time and as a stream.

#include <gmock/gmock.h>

#include "ToolDirectory.h"

namespace Testing {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using OrderedJson = nlohmann::ordered_json;

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
      {{"check", "ann", "GET", "/a/1"}, 0, "allowed\n", ""},
      {{"check", "ann", "GET", "/a/secret"}, 1, "refused\n", ""},
      {{"check", "an n", "PUT", "/a"}, 1, "refused\n", ""},
      {{"check", "nobody", "GET", "/a"}, 1, "refused\n", ""},
      {{"check", "ann", "get", "/a"}, 2, "", "METHOD: \"get\" is none of OPTIONS, HEAD, GET"},
      {{"check", "ann", "GET"}, 2, "", "which request? Give USER METHOD URL, or --stdin"},
      {{"check", "ann", "--stdin"}, 2, "", "--stdin takes neither a request nor --explain"},
      {{"methods", "ann", "/a"}, 0, "GET\nPUT\n", ""},
      {{"methods", "ann", "/a/secret"}, 0, "PUT\n", ""},
      {{"methods", "bob", "/a"}, 1, "", ""},
  });
  EXPECT_EQ(Json({"check", "ann", "GET", "/a"}),
            OrderedJson::parse(R"({"user_id":"ann","method":"GET","url":"/a","allowed":true})"));
  EXPECT_EQ(Json({"methods", "ann", "/a"}),
            OrderedJson::parse(R"({"user_id":"ann","url":"/a","methods":["GET","PUT"]})"));
}

TEST_F(Check, ExplainsWhichFilterDecided) {
  Run({
      {{"check", "ann", "GET", "/a/secret", "--explain"},
       1,
       "refused by Deny of group \"editors\", pattern \"secret\".\n\n"
       "    GROUP    ACTION  METHOD  NAMED  MATCHES  PART    PATTERN\n"
       "=>  editors  Deny    GET     yes    yes      secret  secret\n"
       "    guests   Allow   GET     yes    yes      /a      ^/a\n"
       "    editors  Allow   PUT     no     yes      /a      ^/a\n"
       "    guests   allow   PUT     no     yes      /a      ^/a\n"
       "    guests   Allow   GET     yes    no       -       (\n",
       ""},
      {{"check", "ann", "HEAD", "/a", "--explain"},
       1,
       "refused by default: no Allow or Deny filter of the user's groups names the method and matches the URL.\n\n"
       "  GROUP    ACTION  METHOD  NAMED  MATCHES  PART  PATTERN\n"
       "  editors  Deny    GET     no     no       -     secret\n"
       "  editors  Allow   PUT     no     yes      /a    ^/a\n"
       "  guests   Allow   GET     no     yes      /a    ^/a\n"
       "  guests   allow   PUT     no     yes      /a    ^/a\n"
       "  guests   Allow   GET     no     no       -     (\n",
       ""},
      {{"check", "bob", "GET", "/a", "--explain"}, 1, "refused: the user is in no group.\n", ""},
      {{"check", "eve", "GET", "/a", "--explain"}, 1, "refused: the user's groups have no filter.\n", ""},
      {{"check", "nobody", "GET", "/a", "--explain"}, 1, "refused: there is no such user.\n", ""},
  });
  const auto explained = Json({"check", "an n", "GET", "/a\n", "--explain"});
  EXPECT_EQ(explained, OrderedJson::parse(R"json({"user_id":"an n","method":"GET","url":"/a\n","allowed":true,
    "reason":"allowed by Allow of group \"guests\", pattern \"^/a\"","groups":["guests"],"filters":[
    {"group_id":"guests","method":"GET","filter":"^/a","action":"Allow","names_method":true,"matches":true,"part":"/a","decides":true},
    {"group_id":"guests","method":"PUT","filter":"^/a","action":"allow","names_method":false,"matches":true,"part":"/a","decides":false},
    {"group_id":"guests","method":"GET","filter":"(","action":"Allow","names_method":true,"matches":false,"part":null,"decides":false}]})json"))
      << explained.dump(2);
}

TEST_F(Check, AStreamIsAnsweredLineByLineInOrder) {
  Run({
      {{"check", "--stdin"}, 0, "", "", ""},
      {{"check", "--stdin"}, 0, "allowed\nallowed\n", "", "GET /a an n\nPUT /a?x=y ann"},
      {{"check", "--stdin"}, 1, "allowed\nrefused\nrefused\n", "", "GET /a ann\nGET /a/secret ann\nGET /a ann\r\n"},
      {{"check", "--stdin"},
       2,
       "invalid\nallowed\ninvalid\ninvalid\ninvalid\n",
       "line 1: \"get /a ann\" is not \"METHOD URL USER\"",
       "get /a ann\nGET /a ann\nGET /a\n\nGET /a \n"},
      {{"check", "--stdin", "--json"},
       2,
       "{\"line\":1,\"valid\":true,\"allowed\":true}\n{\"line\":2,\"valid\":false}\n",
       "line 2",
       "GET /a ann\n\x1b[2J\n"},
  });
  std::string questions;
  std::string answers;
  for (int i = 0; i < 3000; ++i) {
    questions += i % 7 == 0 ? "GET /a/" + std::string(100, 'x') + " ann\n" : "PUT /b ann\n";
    answers += i % 7 == 0 ? "allowed\n" : "refused\n";
  }
  EXPECT_TRUE(Tool({"check", "--stdin"}, questions).out == answers);
  const ToolResult too_long = Tool({"check", "--stdin"}, "GET /a ann\nGET /" + std::string(3 << 20, 'a'));
  EXPECT_EQ(too_long.status, 2);
  EXPECT_EQ(too_long.out, "allowed\n");
  EXPECT_THAT(too_long.err, HasSubstr("longer than 2 MiB"));
}

TEST_F(Check, AStreamAnswersBeforeItWaitsAndSeesChanges) {
  ToolProcess stream(File(), {"check", "--stdin"});
  stream.Write("GET /a ann\nGET /a/se");
  EXPECT_EQ(stream.ReadLine(), "allowed");
  Run({{{"filter", "delete", "editors", "Deny", "GET", "secret"}, 0, "Deleted 1 filter.\n", ""}});
  stream.Write("cret ann\n");
  EXPECT_EQ(stream.ReadLine(), "allowed");
  stream.Write("PUT /a an n\nnonsense\n");
  EXPECT_EQ(stream.ReadLine(), "refused");
  EXPECT_EQ(stream.ReadLine(), "invalid");
  EXPECT_EQ(stream.Finish().status, 2);
}

TEST_F(Check, ColoursAreForTerminalsThatWantThem) {
  const std::vector<std::string> arguments = {"check", "ann", "GET", "/a", "--explain"};
  // NOLINTBEGIN(concurrency-mt-unsafe): the test has no thread
  unsetenv("NO_COLOR");
  EXPECT_THAT(RunToolAtTerminal(File(), arguments, {}).out, HasSubstr("\x1b[32mAllow\x1b[0m"));
  EXPECT_THAT(Tool(arguments).out, Not(HasSubstr("\x1b")));
  setenv("NO_COLOR", "", 1); // as if it were not set
  EXPECT_THAT(RunToolAtTerminal(File(), {"check", "bob", "GET", "/"}, {}).out, HasSubstr("\x1b[31mrefused\x1b[0m"));
  setenv("NO_COLOR", "1", 1);
  EXPECT_THAT(RunToolAtTerminal(File(), arguments, {}).out, Not(HasSubstr("\x1b")));
  // NOLINTEND(concurrency-mt-unsafe)
}

TEST_F(Check, ADatabaseThatFailsIsNoAnswer) {
  Sql("DROP TABLE filters; CREATE TABLE filters(method, group_id, filter, action)");
  BareDatabase holder(File());
  holder.Run("BEGIN EXCLUSIVE");
  const ToolResult busy = Tool({"check", "ann", "GET", "/a"});
  EXPECT_EQ(busy.status, 3);
  EXPECT_EQ(busy.out, "");
  EXPECT_THAT(busy.err, HasSubstr("is busy: another program holds it locked"));
}

} // namespace
} // namespace Testing
