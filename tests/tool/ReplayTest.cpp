// Logged requests judged anew, and what a change would flip.

#include "ToolDirectory.h"
#include "directory/replay/RequestLog.h"

namespace Testing {
namespace {

using AccessDirectory::ReadLogLine;
using Unjudged = AccessDirectory::LoggedRequest::Unjudged;

std::string Combined(const std::string& user, const std::string& request, int status) {
  return "10.0.0.7 - " + user + " [25/Nov/2026:10:00:00 +0000] \"" + request + "\" " + std::to_string(status) +
         " 12 \"-\" \"curl/8\"";
}

std::string Decision(const std::string& outcome, const std::string& user, const std::string& path,
                     const std::string& decider = "null") {
  return R"({"time":"2026-11-25T10:00:00.000+00:00","request_id":"r","outcome":")" + outcome + R"(","user_id":)" +
         user + R"(,"address":"","method":"GET","path":")" + path + R"(","reason":"","decider":)" + decider +
         R"(,"microseconds":1,"cached":false})";
}

TEST(RequestLog, TakesEachLineForWhatItSays) {
  struct Case {
    std::string line;
    Unjudged unjudged;
    bool allowed;
    std::string user;
    std::string target;
  };
  const Case cases[] = {{Combined("a n", "GET /x?y=\\x22 HTTP/1.1", 200), Unjudged::None, true, "a n", "/x?y=\""},
                        {Combined("-", "GET /x HTTP/1.1", 403), Unjudged::None, false, "", "/x"},
                        {Combined("ann", "GET /x HTTP/1.1", 404), Unjudged::None, true, "ann", "/x"},
                        {Combined("ann", "GET /x HTTP/1.1", 401), Unjudged::Unauthenticated, true, "ann", "/x"},
                        {Combined("ann", "GET /x HTTP/1.1", 503), Unjudged::NotDecided, true, "ann", "/x"},
                        {Combined("ann", "GET /x HTTP/1.1", 499), Unjudged::NotDecided, true, "ann", "/x"},
                        {Combined("ann", "BREW /x HTTP/1.1", 200), Unjudged::NoMethod, true, "ann", "/x"},
                        {Combined("-", "\\x16\\x03", 400), Unjudged::NotDecided, false, "", ""},
                        {"some words", Unjudged::NotReadable, false, "", ""},
                        {Combined("ann", "GET /x HTTP/1.1", 200).substr(0, 60), Unjudged::NotReadable, false, "", ""},
                        {Decision("allowed", "\"ann\"", "/x", R"({"group_id":"g","filter":"f","action":"Allow"})"),
                         Unjudged::None, true, "ann", "/x"},
                        {Decision("refused", R"({"base64":"/w=="})", "/x"), Unjudged::None, false, "\xff", "/x"},
                        {Decision("allowed", "\"\"", "/x"), Unjudged::NotDecided, true, "", "/x"}, // by the bypass
                        {Decision("throttled", "\"ann\"", "/x"), Unjudged::NotDecided, false, "ann", "/x"},
                        {Decision("unauthenticated", "\"ann\"", "/x"), Unjudged::Unauthenticated, false, "ann", "/x"},
                        {Decision("refused", "7", "/x"), Unjudged::NotReadable, false, "", ""},
                        {"{\"outcome\":", Unjudged::NotReadable, false, "", ""}};
  for (const Case& expected : cases) {
    const auto request = ReadLogLine(expected.line);
    EXPECT_EQ(request.unjudged, expected.unjudged) << expected.line;
    EXPECT_EQ(request.user_id, expected.user) << expected.line;
    EXPECT_EQ(request.target, expected.target) << expected.line;
    EXPECT_EQ(request.allowed && request.unjudged == Unjudged::None,
              expected.allowed && expected.unjudged == Unjudged::None)
        << expected.line;
  }
}

class Replay : public ToolDirectory {
protected:
  void SetUp() override {
    ToolDirectory::SetUp();
    Sql("INSERT INTO groups VALUES('g', 'g'); INSERT INTO users VALUES('ann', 'plain_pw', 'x', '', '');"
        "INSERT INTO groupusers VALUES('g', 'ann'); INSERT INTO filters VALUES('GET', 'g', '^/a(/|$)', 'Allow'),"
        "('GET', 'g', '^/a/secret', 'Deny'), ('GET', 'g', '((a{200}){200}){200}', 'Deny')");
    Sql("DELETE FROM filters WHERE filter LIKE '((%'");
  }
};

TEST_F(Replay, TellsWhatIsJudgedOtherwiseAndByWhichFilter) {
  const std::string log =
      Combined("ann", "GET /a/secret?x=1 HTTP/1.1", 200) + '\n' + Combined("ann", "GET /a/secret HTTP/1.1", 200) +
      '\n' + Combined("ann", "GET /a/7?x=1 HTTP/1.1", 200) + '\n' + Combined("ann", "GET /a//7 HTTP/1.1", 403) +
      "\n\n" + Combined("ann", "GET /a/7 HTTP/1.1", 403) + '\n' + Combined("-", "GET / HTTP/1.1", 401);
  Run({{"replay -", 1,
        "COUNT  METHOD  BEFORE   AFTER                    FIRST\n"
        "2      GET     allowed  Deny of \"g\": ^/a/secret  ann /a/secret?x=1\n"
        "1      GET     refused  Allow of \"g\": ^/a(/|$)   ann /a/7\n\n"
        "4 requests judged, 3 otherwise than before.\n2 lines not judged: 1 unauthenticated, 1 not decided.\n",
        "", log},
       {"replay -", 0, "1 request judged, 0 otherwise than before.\n", "", Combined("ann", "GET /a/7 HTTP/1.1", 200)},
       {"replay -", 2, "", "the log holds no request", "\n"},
       {"replay /nowhere", 2, "", "/nowhere"}});
}

TEST_F(Replay, TriesAChangeOnACopyAlone) {
  const std::string before = Contents(File());
  const std::string log = Combined("ann", "GET /a/7 HTTP/1.1", 500) + '\n' + Decision("refused", "\"ann\"", "/a/7") +
                          '\n' + Decision("refused", "\"ann\"", "/b");
  Run({{{"what-if", "--log", "-", "--", "filter", "delete", "g", "Allow", "GET", "^/a(/|$)"},
        1,
        "COUNT  METHOD  BEFORE                  AFTER    FIRST\n"
        "1      GET     Allow of \"g\": ^/a(/|$)  refused  ann /a/7\n\n"
        "2 requests judged, 1 otherwise than before.\n1 line not judged: 1 not decided.\n",
        "",
        log},
       {{"what-if", "--log", "-", "--", "group", "rename", "g", "x"},
        0,
        "2 requests judged, 0 otherwise than before.\n1 line not judged: 1 not decided.\n",
        "",
        log},
       {{"what-if", "--log", "-", "--", "group", "delete", "no"}, 1, "", "nothing is compared", log},
       {{"what-if", "--log", "-", "--", "lint"}, 2, "", "\"lint\" changes no users", log}});
  EXPECT_TRUE(Contents(File()) == before);
}

} // namespace
} // namespace Testing
