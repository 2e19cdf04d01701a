// The configuration file: what is taken, what is refused and in which words.

#include <fstream>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "directory/Failure.h"
#include "host/Configuration.h"
#include "host/configuration/Keys.h"
#include "support/Support.h"

namespace Host {

namespace {

class ConfigurationFile : public testing::Test {
protected:
  /// What is wrong with `text`, without the file's name; empty when nothing is.
  std::string Fault(const std::string& text) {
    Write(text);
    try {
      m_Read = ReadConfiguration(m_File);
      return "";
    } catch (const AccessDirectory::Failure& failure) {
      EXPECT_EQ(failure.What(), AccessDirectory::Failure::Kind::Input);
      const std::string message = failure.what();
      EXPECT_EQ(message.find("\"" + m_File + "\": "), 0U) << message;
      return message.substr(std::min(message.size(), m_File.size() + 4));
    }
  }

  /// `text` with `value` in the place of `key`, "Host.Proxy.Peers".
  static std::string With(const std::string& key, const nlohmann::json& value) {
    nlohmann::json root = {{"LocalAccessManager", {{"DatabaseFilename", "access.db"}}},
                           {"Host", {{"Listen", {"127.0.0.1:0"}}}}};
    std::string pointer = "/" + key;
    std::replace(pointer.begin(), pointer.end(), '.', '/');
    root[nlohmann::json::json_pointer(pointer)] = value;
    return root.dump();
  }

  void Write(const std::string& text) const { std::ofstream(m_File, std::ios::binary) << text; }

  Testing::TemporaryDirectory m_Place;
  std::string m_File = m_Place.File("host.json");
  Configuration m_Read;
};

} // namespace

TEST_F(ConfigurationFile, FillsInDefaultsAndMakesNamesAbsolute) {
  ASSERT_EQ(Fault(R"({"LocalAccessManager": {"DatabaseFilename": "data/access.db"}, "Other": {"Listenn": 1},
                      "Host": {"Listen": ["unix:host.sock", "[::1]:0", "https:0.0.0.0:443"], "Target": "path-and-query",
                               "TargetAllows": [";", "%2F"], "Proxy": {"Peers": ["unix:root", "10.0.0.0/8"]},
                               "TLS": {"Certificate": "a.pem", "Key": "/b.pem"}, "Log": {"Decisions": "log"}}})"),
            "");
  EXPECT_EQ(m_Read.database_filename, m_Place.File("data/access.db"));
  EXPECT_EQ(m_Read.dictionary->GetDict("LocalAccessManager").GetData("DatabaseFilename").GetValue(),
            m_Read.database_filename);
  EXPECT_EQ(m_Read.dictionary->GetDict("Other").GetData("Listenn").GetValue(), "1");
  EXPECT_EQ(m_Read.auth_realm, "Perenna");
  ASSERT_EQ(m_Read.listen.size(), 3U);
  EXPECT_EQ(m_Read.listen[0].path, m_Place.File("host.sock"));
  EXPECT_EQ(m_Read.listen[1].address, "::1");
  EXPECT_EQ(m_Read.listen[2].port, 443U);
  EXPECT_EQ(m_Read.target, TargetPart::PathAndQuery);
  EXPECT_EQ(m_Read.proxy.peers[0].user, 0U);
  EXPECT_TRUE(m_Read.proxy.peers[1].network.Contains(*ParseAddress("::ffff:10.255.0.1")));
  EXPECT_FALSE(m_Read.proxy.peers[1].network.Contains(*ParseAddress("11.0.0.1")));
  EXPECT_EQ(m_Read.tls.certificate + m_Read.tls.key, m_Place.File("a.pem") + "/b.pem");
  EXPECT_EQ(m_Read.log.decisions, m_Place.File("log"));
  EXPECT_EQ(m_Read.log.access, "");
  EXPECT_EQ(m_Read.limits.request_seconds, 10U);
}

TEST_F(ConfigurationFile, RefusesWhatItDoesNotKnowByName) {
  const std::pair<const char*, const char*> cases[] = {
      {"{", "is not JSON: line 1: "},
      {"{\n\n[", "is not JSON: line 3: "},
      {"[]", "is not a JSON object"},
      {R"({"Host": {"PlainText": false, "PlainText": true}})", "the key \"PlainText\" is given twice in one object"},
      {R"({"Host": {"Lissten": []}})", "there is no key \"Host.Lissten\"; the nearest is \"Host.Listen\""},
      {R"({"Host": {"TLS": {"Cert": 1}}})", "there is no key \"Host.TLS.Cert\"; the nearest is \"Host.TLS.Key\""},
      {R"({"Sync": {"Onstale": 1}})", "there is no key \"Sync.Onstale\"; the nearest is \"Sync.OnStale\""},
      {R"({"Host": {"Proxy": []}})", "\"Host.Proxy\" must be an object"},
      {R"({"Host": {}})", "LocalAccessManager.DatabaseFilename is missing: give the name of a file"},
  };
  for (const auto& [text, fault] : cases) {
    EXPECT_EQ(Fault(text).find(fault), 0U) << text << "\n" << Fault(text);
  }
}

TEST_F(ConfigurationFile, EveryKeyTakesItsDefaultAndNamesWhatItAccepts) {
  for (const ConfigurationKey& key : ConfigurationKeys()) {
    if (!key.fallback.empty()) {
      EXPECT_EQ(Fault(With(key.Path(), nlohmann::json::parse(key.fallback))), "") << key.Path();
    }
    for (const nlohmann::json& wrong : {nlohmann::json(-1), nlohmann::json(1.5), nlohmann::json(nullptr)}) {
      EXPECT_EQ(Fault(With(key.Path(), wrong)),
                key.Path() + ": " + wrong.dump() + " is not accepted: give " + key.accepted);
    }
  }
}

TEST_F(ConfigurationFile, RefusesValuesThatWouldMeanSomethingElse) {
  const std::pair<const char*, std::vector<const char*>> cases[] = {
      {"Host.Listen",
       {"[\"localhost:80\"]", "[\"::1:80\"]", "[\"127.0.0.1:65536\"]", "[\"127.0.0.1\"]", "[\"unix:\"]",
        "\"127.0.0.1:0\"", "[\"http:127.0.0.1:0\"]"}},
      {"Host.TargetAllows", {"[\"%2f\"]", "[\"%2E\"]", "[\"%00\"]", "[\"//\"]"}},
      {"Host.Proxy.Peers",
       {"[\"10.0.0.1/8\"]", "[\"10.0.0.0/33\"]", "[\"::/129\"]", "[\"unix:no-such-user\"]", "[\"unix:-1\"]"}},
      {"Host.Proxy.ClientAddress", {"\"X Real\"", "\"X-Real-IP:\""}},
      {"Host.Threads", {"257", "\"1\""}},
      {"Host.Target", {"\"Path\""}},
      {"Host.SocketGroup", {"\"no-such-group\""}},
      {"Host.Administrators", {"\"\"", "\"a b\""}},
      {"LocalAccessManager.AuthRealm", {"\"a\\\"b\"", "\"\\n\"", "\"\""}},
      {"LocalAccessManager.AnonymousUserId", {"\" a\"", "\"a\\u0000\""}},
      {"LocalAccessManager.PathFilterBypass",
       {"\"/a\"", "\"^/a|/b\"", "\"(^/a)\"", "\"^/[[:alpha:]|]x|/b\"", "\"^/[]|]|b\"", "\"^/[^]|]|b\"", "\"^(\""}},
      {"LocalAccessManager.DatabaseFilename", {"\"\"", "\"a\\u0000b\""}},
  };
  for (const auto& [key, values] : cases) {
    for (const char* const value : values) {
      EXPECT_EQ(Fault(With(key, nlohmann::json::parse(value))).find(std::string(key) + ": "), 0U)
          << key << " " << value;
    }
  }
  EXPECT_EQ(Fault(With("LocalAccessManager.PathFilterBypass", "^/(a|b)[|[:alpha:]|][]|][^]|]\\|$")), "");
}

TEST_F(ConfigurationFile, RefusesMembersThatMustNotBeTogether) {
  const std::string database = R"({"LocalAccessManager": {"DatabaseFilename": "a"}, "Host": )";
  const std::pair<const char*, const char*> cases[] = {
      {R"({"Listen": []})", "Host.Listen names nothing to listen on"},
      {R"({"Listen": ["127.0.0.1:80", "127.0.0.1:80"]})", "Host.Listen: \"127.0.0.1:80\" is there twice"},
      {R"({"Listen": ["0.0.0.0:80"]})", "Host.Listen: \"0.0.0.0:80\" would carry passwords in plain text"},
      {R"({"Listen": ["https:127.0.0.1:443"]})", "Host.Listen: \"https:127.0.0.1:443\" needs Host.TLS.Certificate"},
      {R"({"Listen": ["127.0.0.1:0"], "Proxy": {"Peers": ["unix:root", "unix"], "Certificate": {"Name": "X-Cert"}}})",
       "Host.Proxy.Certificate needs Host.Proxy.Peers"},
      {R"({"Listen": ["127.0.0.1:0"], "Proxy": {"Certificate": {"Name": "X-Cert"}}})",
       "Host.Proxy.Certificate needs Host.Proxy.Peers"},
  };
  for (const auto& [host, fault] : cases) {
    EXPECT_EQ(Fault(database + host + "}").find(fault), 0U) << host << "\n" << Fault(database + host + "}");
  }
  EXPECT_EQ(Fault(database + R"({"Listen": ["127.2.3.4:0", "0.0.0.0:80"], "PlainText": true,
                                 "Proxy": {"Peers": ["unix:root"], "Certificate": {"Name": "X-Cert"}}}})"),
            "");
}

} // namespace Host
