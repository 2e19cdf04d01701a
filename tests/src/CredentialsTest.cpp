// Stored credentials, the checks of passwords and certificates, and the two text functions.

#include <algorithm>
#include <cctype>
#include <fstream>

#include "support/AccessDirectory.h"

using namespace Testing;
using LocalAccessManager::DecodeBase64;
using LocalAccessManager::SplitColonPair;

namespace {

class Credentials : public AccessDirectory {
protected:
  static Perenna::X509Certificate Certificate(const std::string& base64) {
    Perenna::X509Thumbprint thumbprint;
    EXPECT_TRUE(thumbprint.DecodeBase64(base64.c_str())) << base64;
    return Perenna::X509Certificate(thumbprint);
  }
  std::string UserOf(const Perenna::X509Certificate& certificate) {
    std::string user_id = "untouched";
    const bool found =
        Manager().TestUserCertificate(Perenna::HTTPRequest(Perenna::METH_GET, "/"), certificate, user_id);
    EXPECT_EQ(found, user_id != "untouched");
    return user_id;
  }
  static std::string Digest(const std::string& expression) { return expression.substr(33); }
};

std::string UpperCase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::toupper(c); });
  return text;
}

} // namespace

TEST_F(Credentials, APasswordIsAcceptedByteForByteWhateverItsBytes) {
  std::vector<std::string> passwords = {"", ":", "a:b:c", "0123456789abcdef:x", std::string(1 << 20, 'p')};
  std::string all;
  for (int byte = 0; byte < 256; ++byte) {
    all += static_cast<char>(byte);
    passwords.emplace_back(1, static_cast<char>(byte));
  }
  passwords.push_back(all);
  BareDatabase bare(File());
  bare.Run("BEGIN");
  for (std::size_t i = 0; i < passwords.size(); ++i) {
    bare.Query("INSERT INTO users VALUES('plain' || ?1, 'plain_pw', ?2, 'd', 'root')",
               {std::to_string(i), passwords[i]});
    bare.Query("INSERT INTO users VALUES('salted' || ?1, 'sha256', ?2, 'd', 'root')",
               {std::to_string(i), calculate_sha_password_expression(passwords[i])});
  }
  bare.Run("COMMIT");
  for (std::size_t i = 0; i < passwords.size(); ++i) {
    std::string altered = passwords[i];
    altered = altered.empty() ? "x" : altered.substr(1) + static_cast<char>(altered.front() ^ 1);
    for (const std::string& user_id : {"plain" + std::to_string(i), "salted" + std::to_string(i)}) {
      ASSERT_TRUE(Login(user_id, passwords[i])) << user_id;
      for (const std::string& wrong : {altered, passwords[i] + '\0', "x" + passwords[i]}) {
        ASSERT_FALSE(Login(user_id, wrong)) << user_id << " " << ::testing::PrintToString(wrong.substr(0, 20));
      }
    }
  }
}

TEST_F(Credentials, TheStoredDigestIsThatOfTheConstantTheSaltTextAndThePassword) {
  const std::string constant = "\x9d\x41\xe7\x2c\x58\x06\xb3\xfa\x77\x1e\xc4\x90\x2b\x6f\xd5\x83";
  std::set<std::string> salts;
  for (const std::string& password :
       {std::string("a password"), std::string("nul\0:\xff", 6), std::string("a password")}) {
    const std::string user_id = "user" + std::to_string(salts.size());
    AddUser(user_id, password);
    const std::string expression = Query("SELECT auth_value FROM users WHERE user_id = ?", {user_id}).at(0).at(0);
    const std::string salt = expression.substr(0, 32);
    std::ofstream(PathBeside("input"), std::ios::binary) << constant << salt << password;
    const Finished program = RunProgram({"sha256sum", PathBeside("input")});
    ASSERT_EQ(program.status, 0) << program.output;
    EXPECT_EQ(expression, salt + ":" + program.output.substr(0, 64));
    EXPECT_TRUE(salts.insert(salt).second) << "every expression has a salt of its own";
  }
}

TEST_F(Credentials, AStoredValueDecidesByItsMethod) {
  const std::string good = calculate_sha_password_expression("p");
  std::string lettered = good; // a salt with a letter in it: 1 in 3 million has none
  while (UpperCase(lettered.substr(0, 32)) == lettered.substr(0, 32)) {
    lettered = calculate_sha_password_expression("p");
  }
  const std::string thumbprint = "AAECAwQFBgcICQoLDA0ODxAREhM=";
  const Lines plain = {DebugLine("auth_method: \"plain_pw\".\n")};
  const Lines salted = {DebugLine("auth_method: \"sha256\".\n")};
  const Lines ignored = {DebugLine("ignoring auth_method: \"tls_client_certificate\" in TestUserIdAndPassword().\n")};
  struct Case {
    std::string auth_method, auth_value, password;
    bool accepted;
    Lines lines;
  };
  const std::vector<Case> cases = {
      {"plain_pw", "", "", true, plain},
      {"plain_pw", "", "x", false, plain},
      {"plain_pw", good, "p", false, plain},
      {"plain_pw", "Secret", "secret", false, plain},
      {"sha256", good, "p", true, salted},
      {"sha256", good, "", false, salted},
      {"sha256", good, good, false, salted},
      {"sha256", UpperCase(lettered.substr(0, 32)) + lettered.substr(32), "p", false, salted},
      {"sha256", good.substr(0, 33) + UpperCase(Digest(good)), "p", false, salted},
      {"sha256", good + " ", "p", false, salted},
      {"sha256", good.substr(0, 33), "p", false, salted},
      {"sha256", good.substr(0, 32) + Digest(good), "p", false, salted}, // no colon
      {"sha256", "", "", false, salted},
      {"sha256", ":", "", false, salted},
      {"tls_client_certificate", thumbprint, thumbprint, false, ignored},
      {"tls_client_certificate", "", "", false, ignored},
      {"SHA256", good, "p", false, {ErrorLine("Unexpected auth_method: \"SHA256\".\n")}},
      {"", "", "", false, {ErrorLine("Unexpected auth_method: \"\".\n")}},
      {std::string("plain_pw\0", 9), "p", "p", false, {ErrorLine("Unexpected auth_method: \"plain_pw\".\n")}},
  };
  for (const Case& one : cases) {
    SCOPED_TRACE(one.auth_method + ", " + one.auth_value + ", password " + one.password);
    Run("DELETE FROM users");
    AddStoredUser("anna", one.auth_method, one.auth_value);
    EXPECT_EQ(Login("anna", one.password), one.accepted);
    EXPECT_EQ(Log(), one.lines);
    for (const std::string& other :
         {std::string("Anna"), std::string(), std::string("anna "), std::string("anna\0", 5)}) {
      EXPECT_FALSE(Login(other, one.password)) << other;
    }
    EXPECT_EQ(Log(), Lines{}) << "an unknown user is refused without a word";
    EXPECT_EQ(UserOf(Certificate(thumbprint)), one.auth_value == thumbprint ? "anna" : "untouched");
  }
}

TEST_F(Credentials, ACertificateIsFoundByTheCanonicalTextOfItsThumbprintAlone) {
  const std::string thumbprint = "AAECAwQFBgcICQoLDA0ODxAREhM=";
  for (const std::string method : {"sha256", "plain_pw", "TLS_client_certificate"}) {
    AddStoredUser(method, method, thumbprint);
  }
  AddStoredUser("other text", "tls_client_certificate", "AAECAwQFBgcICQoLDA0ODxAREhN="); // of the same bytes
  AddStoredUser("nobody", "tls_client_certificate", "AAAAAAAAAAAAAAAAAAAAAAAAAAA=");
  EXPECT_EQ(UserOf(Certificate(thumbprint)), "untouched");
  EXPECT_EQ(UserOf(Perenna::X509Certificate()), "untouched") << "no certificate is nobody's";
  AddStoredUser("anna", "tls_client_certificate", thumbprint);
  EXPECT_EQ(UserOf(Certificate(thumbprint)), "anna");
  AddStoredUser("zoe", "tls_client_certificate", thumbprint);
  EXPECT_THAT(UserOf(Certificate(thumbprint)), ::testing::AnyOf("anna", "zoe"));
  EXPECT_EQ(Log(), Lines{});
}

TEST(CredentialTexts, Base64IsDecodedToItsBytesOrToNothing) {
  for (const auto& [text, bytes] : std::vector<std::pair<std::string, std::string>>{{"", ""},
                                                                                    {"AA==", std::string(1, '\0')},
                                                                                    {"AGEA", std::string("\0a\0", 3)},
                                                                                    {"YTpiOmM=", "a:b:c"},
                                                                                    {"/+8=", "\xff\xef"},
                                                                                    {std::string("YQ==\0!", 6), "a"},
                                                                                    {"YQ", ""},
                                                                                    {"YQ=", ""},
                                                                                    {"Y", ""},
                                                                                    {"YQ==YQ==", ""},
                                                                                    {" YQ==", ""},
                                                                                    {"YQ==\n", ""},
                                                                                    {"_-8=", ""},
                                                                                    {"====", ""},
                                                                                    {std::string("\0YQ==", 5), ""}}) {
    EXPECT_EQ(DecodeBase64(text), bytes) << text;
  }
  EXPECT_EQ(DecodeBase64(std::string(1 << 22, 'A')), std::string(3 << 20, '\0'));
}

TEST(CredentialTexts, APairIsCutAtItsFirstColon) {
  struct Case {
    std::string pair;
    bool cut;
    std::string first, second;
  };
  for (const Case& one : std::vector<Case>{{"a:b", true, "a", "b"},
                                           {":b", true, "", "b"},
                                           {"a:", true, "a", ""},
                                           {":", true, "", ""},
                                           {"a:b:c:", true, "a", "b:c:"},
                                           {std::string("\0:\0", 3), true, std::string(1, '\0'), std::string(1, '\0')},
                                           {"ab", false, "1", "2"},
                                           {"", false, "1", "2"}}) {
    std::string first = "1";
    std::string second = "2";
    EXPECT_EQ(SplitColonPair(one.pair, first, second), one.cut) << one.pair;
    EXPECT_EQ(first, one.first) << one.pair;
    EXPECT_EQ(second, one.second) << one.pair;
  }
  std::string itself = "a:b:c";
  std::string first;
  EXPECT_TRUE(SplitColonPair(itself, first, itself));
  EXPECT_EQ(first + "|" + itself, "a|b:c");
}
