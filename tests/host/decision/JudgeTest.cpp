// What is decided, what the answer to a proxy says, and what is kept.

#include "host/decision/JudgedDirectory.h"
#include "platform/Helpers.h"

using namespace Testing;

namespace {

class Judging : public JudgedDirectory {
protected:
  void SetUp() override {
    JudgedDirectory::SetUp();
    AddUser("anna", "pa:ss");
    AddUser("ben", "b");
    AddGroup("staff", {"anna", "ben"});
    AddGroup("admins", {"anna"});
    Run("INSERT INTO groupusers VALUES ('ghost', 'anna'), ('bad id', 'anna'); INSERT INTO groups VALUES ('bad id', "
        "'')");
    AddFilter("GET staff ^/articles(/|$) Allow");
    AddFilter("GET staff ( Allow");
    AddFilter("GET admins ^/articles/secret Deny");
    AddFilter("OPTIONS staff ^/ Allow");
  }
};

} // namespace

TEST_F(Judging, AnswersAProxyWithFourStatusesAndSaysWhyInTheLog) {
  Settings().path_filter_bypass = "^/(public|access)/";
  AddStoredUser(" blank", "plain_pw", "x");
  AddStoredUser("tab\t", "plain_pw", "x");
  AddStoredUser("\xc3\xa9lan", "plain_pw", "x");
  AddStoredUser("c1\xc2\x85", "plain_pw", "x");
  AddStoredUser("many", "plain_pw", "x");
  Run("INSERT INTO groupusers SELECT 'staff', user_id FROM users WHERE auth_value = 'x';"
      "WITH RECURSIVE n(i) AS (SELECT 1 UNION SELECT i + 1 FROM n WHERE i < 500)"
      "INSERT INTO groups SELECT printf('group-%011d', i), '' FROM n;"
      "INSERT INTO groupusers SELECT group_id, 'many' FROM groups WHERE group_id LIKE 'group-%'");
  const std::string refused = "403|X-Access-Outcome: refused";
  const std::string malformed = "403|X-Access-Outcome: malformed";
  const std::string unauthenticated = "401|X-Access-Outcome: unauthenticated|WWW-Authenticate: Basic "
                                      R"(realm="a \"realm\"", charset="UTF-8")";
  const std::string allowed = "200|X-Access-Outcome: allowed|Remote-User: ";
  const struct {
    std::string request;
    std::string login;
    std::string answer;
    const char* reason; // a part of it
  } cases[] = {
      {"GET /articles?page=2", "anna:pa:ss", allowed + "anna|Remote-Groups: admins,staff", "Allow of group \"staff\""},
      {"OPTIONS /articles", "ben:b", allowed + "ben|Remote-Groups: staff", "pattern \"^/\""},
      {"GET /articles/secret", "anna:pa:ss", refused, "Deny of group \"admins\", pattern \"^/articles/secret\""},
      {"GET /other", "ben:b", refused, "refused by default"},
      {"GET /other?/articles/", "ben:b", refused, "refused by default"},
      {"GET /articles", "root:root", refused, "in no group"},
      {"GET /articles", "ben:c", unauthenticated, "wrong password"},
      {"GET /articles", "nobody:c", unauthenticated, "unknown user"},
      {"GET /articles", std::string("ben\0x:b", 7), unauthenticated, "unknown user"},
      {"GET /articles", "ben", unauthenticated, "malformed"},
      {"GET /articles", "", unauthenticated, "no credentials"},
      {"GET /public/x", "ben:wrong", allowed + "|Remote-Groups: ", "PathFilterBypass"},
      {"GET /x/public/x", "", unauthenticated, "no credentials"},
      {"GET /access/users", "", unauthenticated, "no credentials"},
      {"GET /public/../articles", "anna:pa:ss", malformed, "normal form"},
      {"get /articles", "anna:pa:ss", malformed, "method"},
      {"GET /articles", " blank:x", refused, "do not fit"},
      {"GET /articles", "tab\t:x", refused, "do not fit"},
      {"GET /articles", "c1\xc2\x85:x", refused, "do not fit"},
      {"GET /articles", "\xc3\xa9lan:x", allowed + "\xc3\xa9lan|Remote-Groups: staff", "Allow"},
      {"GET /articles", "many:x", refused, "do not fit"},
  };
  for (int repetition = 0; repetition < 2; ++repetition) { // the second time from the cache, where it may be
    for (const auto& [request, login, answer, reason] : cases) {
      const Host::Verdict& verdict = Ask(request, login);
      EXPECT_EQ(Answer(), answer) << request << " " << login;
      EXPECT_NE(verdict.judgement->reason.find(reason), std::string::npos)
          << request << ": " << verdict.judgement->reason;
      EXPECT_EQ(verdict.judgement->decider.has_value(),
                verdict.judgement->reason.find("of group") != std::string::npos);
      EXPECT_EQ(verdict.path, request.substr(request.find(' ') + 1, request.find('?') - request.find(' ') - 1));
    }
  }
  EXPECT_EQ(Host::OutcomeName(AskWith("GET /public/x", {}, {}).What()), std::string("malformed")) << "any peer";
}

TEST_F(Judging, KnowsCertificatesTheAnonymousUserAndQueries) {
  const std::string pem = Output("f=$(mktemp -d) && cd $f && openssl req -x509 -newkey ec -pkeyopt "
                                 "ec_paramgen_curve:prime256v1 -nodes -subj /CN=c -keyout key 2>log; rm -r $f");
  Perenna::X509Certificate certificate;
  ASSERT_EQ(certificate.DecodePEM(pem), Tarn::RESULT_OK) << pem;
  char thumbprint[64];
  AddStoredUser("carl", "tls_client_certificate",
                certificate.Thumbprint().EncodeBase64(thumbprint, sizeof(thumbprint)));
  Run("INSERT INTO groupusers VALUES ('staff', 'carl'), ('staff', 'guest')");
  AddFilter("GET staff ^/find[?]q=a$ Allow");
  std::string base64 = pem.substr(pem.find('\n'), pem.find("-----END") - pem.find('\n'));
  base64.erase(std::remove(base64.begin(), base64.end(), '\n'), base64.end());
  Host::Peer tls;
  tls.tls = tls.unix_domain = true;
  tls.certificate_der = LocalAccessManager::DecodeBase64(base64);

  Settings().target = Host::TargetPart::PathAndQuery;
  Settings().anonymous_user_id = "guest";
  EXPECT_EQ(AskWith("GET /articles/1", {}, tls).judgement->user_id, "carl");
  EXPECT_EQ(Answer(), "200|X-Access-Outcome: allowed|Remote-User: carl|Remote-Groups: staff");
  EXPECT_TRUE(AskWith("GET /articles/1", {}, tls).cached);
  tls.certificate_der.back() ^= 1; // still a certificate, of nobody
  EXPECT_EQ(Host::OutcomeName(AskWith("GET /articles/1", {}, tls).What()), std::string("unauthenticated"));

  EXPECT_EQ(Outcome("GET /find?q=a", ""), "allowed");
  EXPECT_EQ(Ask("GET /find?q=a", "").judgement->user_id, "guest");
  EXPECT_EQ(Outcome("GET /find?q=ab", ""), "unauthenticated") << "the anonymous user is asked for credentials";
  const std::string logged = Ask("GET /find?q=secret", "").path;
  EXPECT_EQ(logged.find("/find?"), 0U);
  EXPECT_EQ(logged.find("secret"), std::string::npos);
  EXPECT_NE(logged, Ask("GET /find?q=other", "").path);
}

TEST_F(Judging, KeepsAnswersUntilSomethingIsCommitted) {
  const auto ask = [this](const std::string& login) {
    const Host::Verdict& verdict = Ask("GET /articles", login);
    return std::string(Host::OutcomeName(verdict.What())) + (verdict.cached ? " cached" : "");
  };
  EXPECT_EQ(ask("ben:b"), "allowed");
  EXPECT_EQ(ask("ben:b"), "allowed cached");
  EXPECT_EQ(ask("anna:b"), "unauthenticated") << "another user";
  EXPECT_EQ(ask("anna:b"), "unauthenticated") << "a refused credential is not kept";
  EXPECT_EQ(Ask("GET /articles/x", "ben:b").cached, false) << "another target";
  EXPECT_EQ(Ask("OPTIONS /articles", "ben:b").cached, false) << "another method";
  Run("DELETE FROM groupusers WHERE user_id = 'ben'");
  EXPECT_EQ(ask("ben:b"), "refused");
  Run("INSERT INTO groupusers VALUES ('staff', 'ben')");
  m_IsInGroup = true;
  EXPECT_EQ(ask("ben:b"), "refused cached") << "one look serves a group";
  m_IsInGroup = false;
  EXPECT_EQ(ask("ben:b"), "allowed");
  Run("UPDATE filters SET filter = '^/art' WHERE filter = '^/articles(/|$)'");
  EXPECT_EQ(Ask("GET /articles", "ben:b").judgement->decider->filter, "^/art");
  Run("DELETE FROM users WHERE user_id = 'ben'");
  EXPECT_EQ(ask("ben:b"), "unauthenticated");
  for (int i = 0; i < 1000; ++i) { // ten times the capacity
    Ask("GET /articles/" + std::to_string(i), "anna:pa:ss");
  }
  EXPECT_EQ(Ask("GET /articles/0", "anna:pa:ss").cached, false);
  EXPECT_EQ(Ask("GET /articles/999", "anna:pa:ss").cached, true);
}

TEST_F(Judging, SlowsDownGuessesOfAnIdFromOneNetworkAlone) {
  const struct {
    int wait; // milliseconds
    unsigned retry;
    const char* login;
    const char* address;
    const char* outcome;
  } steps[] = {
      {0, 0, "anna:pa:ss", "192.0.2.9", "allowed"}, // proven from there for a day
      {0, 0, "anna:1", "192.0.2.7", "unauthenticated"},
      {59999, 0, "anna:2", "192.0.2.7", "unauthenticated"},
      {1, 0, "anna:3", "192.0.2.7", "unauthenticated"}, // the first has left the window
      {0, 0, "anna:4", "192.0.2.7", "unauthenticated"},
      {0, 1, "anna:pa:ss", "192.0.2.7", "throttled"},
      {0, 0, "anna:pa:ss", "192.0.2.8", "allowed"},
      {0, 0, "ben:b", "192.0.2.7", "allowed"},
      {0, 0, "anna:pa:ss", "", "allowed"}, // no address, no limit: nobody may lock an id
      {999, 1, "anna:5", "192.0.2.7", "throttled"},
      {1, 0, "anna:5", "192.0.2.7", "unauthenticated"},
      {1001, 1, "anna:6", "192.0.2.7", "throttled"}, // twice as long
      {999, 0, "anna:6", "192.0.2.7", "unauthenticated"},
      {3999, 1, "anna:7", "192.0.2.7", "throttled"},
      {1, 0, "anna:7", "192.0.2.7", "unauthenticated"},
      {8000, 0, "anna:8", "192.0.2.7", "unauthenticated"},
      {16000, 0, "anna:9", "192.0.2.7", "unauthenticated"},
      {0, 30, "anna:9", "192.0.2.7", "throttled"}, // the longest
      {30000, 0, "anna:pa:ss", "192.0.2.7", "allowed"},
      {0, 0, "anna:x", "192.0.2.7", "unauthenticated"},
      {0, 0, "anna:pa:ss", "192.0.2.7", "allowed"}, // proven before
      {0, 30, "anna:y", "192.0.2.7", "throttled"},
      {90000, 0, "anna:z", "192.0.2.7", "unauthenticated"}, // forgotten
      {0, 0, "anna:z", "192.0.2.7", "unauthenticated"},
      {0, 0, "none:1", "2001:db8::1", "unauthenticated"},
      {0, 0, "none:2", "2001:db8::ffff:1", "unauthenticated"},
      {0, 0, "none:3", "2001:db8:0:0:1::", "unauthenticated"},
      {0, 1, "none:4", "2001:db8::2", "throttled"}, // an id that does not exist, and one network
      {0, 0, "none:4", "2001:db8:0:1::2", "unauthenticated"},
  };
  for (const auto& step : steps) {
    m_Now += step.wait;
    EXPECT_EQ(Outcome("GET /articles", step.login, step.address), step.outcome)
        << "step " << &step - steps << ": " << step.login << " from " << step.address;
    if (step.retry > 0) {
      EXPECT_EQ(Answer(), "403|X-Access-Outcome: throttled|Retry-After: " + std::to_string(step.retry));
    }
  }
  // A proof is remembered for an answer out of the cache too.
  EXPECT_TRUE(Ask("GET /articles", "ben:b", "192.0.2.20").cached);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(Outcome("GET /articles", "ben:" + std::to_string(i), "192.0.2.20"), "unauthenticated");
  }
  EXPECT_EQ(Outcome("GET /articles/new", "ben:b", "192.0.2.20"), "allowed");
  EXPECT_EQ(Outcome("GET /articles/new", "ben:x", "192.0.2.20"), "throttled");
}
