// Stored credentials, the checks of passwords and certificates, and the two text functions.

#include <algorithm>
#include <cctype>
#include <fstream>
#include <set>

#include "platform/Helpers.h"
#include "support/AccessDirectory.h"

using namespace Testing;
using namespace std::string_literals;
using LocalAccessManager::DecodeBase64;
using LocalAccessManager::SplitColonPair;

namespace {

const std::string Thumbprint = "AAECAwQFBgcICQoLDA0ODxAREhM=";
const std::string SameBytes = "AAECAwQFBgcICQoLDA0ODxAREhN=";

class Credentials : public AccessDirectory {
protected:
  /// The user found for a thumbprint, "-" when there is none.
  std::string UserOf(const std::string& base64) {
    Perenna::X509Thumbprint thumbprint;
    EXPECT_EQ(thumbprint.DecodeBase64(base64.c_str()), !base64.empty());
    std::string user_id = "-";
    const bool found = Manager().TestUserCertificate(Perenna::HTTPRequest(Perenna::METH_GET, "/"),
                                                     Perenna::X509Certificate(thumbprint), user_id);
    EXPECT_EQ(found, user_id != "-");
    return user_id;
  }
};

std::string UpperCase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::toupper(c); });
  return text;
}

} // namespace

TEST_F(Credentials, APasswordIsAcceptedByteForByteWhateverItsBytes) {
  std::string every_byte;
  for (int byte = 0; byte < 256; ++byte) {
    every_byte += static_cast<char>(byte);
  }
  for (const std::string& password : {""s, "a:b:c"s, "\0"s, every_byte, std::string(1 << 20, 'p')}) {
    AddStoredUser("plain", "plain_pw", password);
    AddStoredUser("salted", "sha256", calculate_sha_password_expression(password));
    for (const std::string user_id : {"plain", "salted"}) {
      EXPECT_TRUE(Login(user_id, password));
      EXPECT_FALSE(Login(user_id, password + '\0'));
      EXPECT_FALSE(Login(user_id, password.empty() ? "x" : password.substr(0, password.size() - 1)));
    }
    Run("DELETE FROM users");
  }
}

TEST_F(Credentials, TheStoredDigestIsThatOfTheConstantTheSaltTextAndThePassword) {
  const std::string constant = "\x9d\x41\xe7\x2c\x58\x06\xb3\xfa\x77\x1e\xc4\x90\x2b\x6f\xd5\x83";
  std::set<std::string> salts;
  for (const std::string& password : {"a password"s, "nul\0:\xff"s, "a password"s}) {
    const std::string expression = calculate_sha_password_expression(password);
    const std::string salt = expression.substr(0, 32);
    std::ofstream(PathBeside("input"), std::ios::binary) << constant << salt << password;
    EXPECT_EQ(expression, salt + ":" + Output("sha256sum '" + PathBeside("input") + "'").substr(0, 64));
    EXPECT_TRUE(salts.insert(salt).second) << "every expression has a salt of its own";
  }
}

TEST_F(Credentials, AStoredValueDecidesByItsMethod) {
  std::string good; // with a letter in its salt, as nearly every expression has
  do {
    good = calculate_sha_password_expression("p");
  } while (UpperCase(good.substr(0, 33)) == good.substr(0, 33));
  const std::string salt = good.substr(0, 33); // and the colon
  const std::string digest = good.substr(33);
  const std::string plain = "D:auth_method: \"plain_pw\".\n";
  const std::string salted = "D:auth_method: \"sha256\".\n";
  const std::string ignored = "D:ignoring auth_method: \"tls_client_certificate\" in TestUserIdAndPassword().\n";
  struct Case {
    std::string auth_method, auth_value, password;
    bool accepted;
    std::string lines;
  };
  // clang-format off
  const std::vector<Case> cases = {
      {"plain_pw", "", "", true, plain},
      {"plain_pw", "", "x", false, plain},
      {"sha256", good, "p", true, salted},
      {"sha256", good, good, false, salted},
      {"sha256", UpperCase(salt) + digest, "p", false, salted},
      {"sha256", salt + UpperCase(digest), "p", false, salted},
      {"sha256", salt, "p", false, salted},
      {"sha256", salt.substr(0, 32) + digest, "p", false, salted}, // no colon
      {"tls_client_certificate", Thumbprint, Thumbprint, false, ignored},
      {"SHA256", good, "p", false, "E:Unexpected auth_method: \"SHA256\".\n"},
      {"plain_pw\0"s, "p", "p", false, "E:Unexpected auth_method: \"plain_pw\".\n"}};
  // clang-format on
  for (const Case& one : cases) {
    SCOPED_TRACE(one.auth_method + ", " + one.auth_value + ", password " + one.password);
    Run("DELETE FROM users");
    AddStoredUser("anna", one.auth_method, one.auth_value);
    EXPECT_EQ(Login("anna", one.password), one.accepted);
    EXPECT_EQ(Log(), one.lines);
    for (const std::string& other : {"Anna"s, ""s, "anna "s, "anna\0"s}) {
      EXPECT_FALSE(Login(other, one.password)) << other;
    }
    EXPECT_EQ(Log(), "") << "an unknown user is refused without a word";
  }
}

TEST_F(Credentials, WhatIsNoTextInAForeignTableIsNobodysCredentialAndNobodysId) {
  Run("DROP TABLE users; CREATE TABLE users(user_id, auth_method, auth_value, create_date, create_user)");
  for (const std::string value : {"NULL", "x'78'", "x''", "7"}) {
    Run("DELETE FROM users; INSERT INTO users VALUES('anna', 'plain_pw', " + value + ", '', ''), (" + value +
        ", 'tls_client_certificate', '" + Thumbprint + "', '', '')");
    for (const std::string password : {"", "x", "eA==", "7"}) {
      EXPECT_FALSE(Login("anna", password)) << value << ", password " << password;
    }
    EXPECT_EQ(UserOf(Thumbprint), "-") << value;
  }
  Run("ALTER TABLE users RENAME COLUMN auth_value TO elsewhere");
  EXPECT_FALSE(Login("anna", ""));
}

TEST_F(Credentials, ACertificateIsFoundByTheCanonicalTextOfItsThumbprintAlone) {
  for (const std::string method : {"sha256", "plain_pw", "TLS_client_certificate"}) {
    AddStoredUser(method, method, Thumbprint);
  }
  AddStoredUser("other text", "tls_client_certificate", SameBytes);
  AddStoredUser("zeros", "tls_client_certificate", "AAAAAAAAAAAAAAAAAAAAAAAAAAA=");
  EXPECT_EQ(UserOf(Thumbprint), "-");
  EXPECT_EQ(UserOf(""), "-") << "no certificate is nobody's";
  AddStoredUser("anna", "tls_client_certificate", Thumbprint);
  EXPECT_EQ(UserOf(Thumbprint), "anna");
  EXPECT_EQ(UserOf(SameBytes), "anna");
  EXPECT_EQ(UserOf("AAAAAAAAAAAAAAAAAAAAAAAAAAA="), "zeros");
  EXPECT_EQ(Log(), "");
}

TEST(CredentialTexts, Base64IsDecodedToItsBytesOrToNothing) {
  // clang-format off
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"", ""}, {"AA==", "\0"s}, {"AGEA", "\0a\0"s}, {"/+8=", "\xff\xef"}, {"YQ==\0!"s, "a"}, {"YQ", ""},
      {"YQ=", ""}, {"YQ==YQ==", ""}, {" YQ==", ""}, {"YQ==\n", ""}, {"_-8=", ""}, {"\0YQ=="s, ""}};
  // clang-format on
  for (const auto& [text, bytes] : cases) {
    EXPECT_EQ(DecodeBase64(text), bytes) << text;
  }
}

TEST(CredentialTexts, APairIsCutAtItsFirstColon) {
  // clang-format off
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"a:b", "yes|a|b"}, {":b", "yes||b"}, {"a:", "yes|a|"}, {":", "yes||"}, {"a:b:c:", "yes|a|b:c:"},
      {"\0:\0"s, "yes|\0|\0"s}, {"ab", "no|1|2"}, {"", "no|1|2"}};
  // clang-format on
  for (const auto& [pair, parts] : cases) {
    std::string first = "1";
    std::string second = "2";
    const std::string cut = SplitColonPair(pair, first, second) ? "yes" : "no";
    EXPECT_EQ((std::vector<std::string>{cut, first, second}), Split(parts, '|'));
  }
  std::string itself = "a:b:c";
  std::string other;
  EXPECT_TRUE(SplitColonPair(itself, other, itself));
  EXPECT_EQ(other + "|" + itself, "a|b:c");
  EXPECT_TRUE(SplitColonPair(itself, itself, other));
  EXPECT_EQ(itself + "|" + other, "b|c");
}
