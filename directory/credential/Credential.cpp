#include "directory/credential/Credential.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <iterator>

#include <openssl/crypto.h>
#include <openssl/rand.h>

#include "LocalAccessManager.h"
#include "PN_x509.h"
#include "directory/Failure.h"
#include "directory/text/Text.h"

namespace AccessDirectory {

namespace {

constexpr std::size_t ThumbprintTextBytes = 64;
constexpr std::size_t DigestDigits = 64; // hexadecimal, lower case
constexpr std::size_t MaximumCertificateBytes = 1048576;
constexpr std::string_view DisabledPrefix = "disabled:";
constexpr const char* FingerprintPrefix = "Fingerprint=";

std::string Canonical(const Perenna::X509Thumbprint& thumbprint) {
  std::array<char, ThumbprintTextBytes> text{};
  return thumbprint.EncodeBase64(text.data(), text.size());
}

} // namespace

const std::string& Credential::Method() const {
  return password ? LocalAccessManager::Strings::sha256 : LocalAccessManager::Strings::tls_client_certificate;
}

std::string Credential::StoredValue() const {
  return password ? calculate_sha_password_expression(password->Text()) : thumbprint;
}

void Credential::AddTo(Perenna::PListDict& request) const {
  if (password) {
    request.SetValue(LocalAccessManager::Strings::password, password->Text());
  } else {
    request.SetValue(LocalAccessManager::Strings::certificate, thumbprint);
  }
}

bool IsUsable(const std::string& auth_method, const std::string& auth_value) {
  namespace Methods = LocalAccessManager::Strings;
  if (auth_method == Methods::sha256) {
    const std::size_t digest = auth_value.find(':') + 1; // 0 without one
    return digest != 0 && auth_value.size() - digest == DigestDigits &&
           auth_value.find_first_not_of("0123456789abcdef", digest) == std::string::npos;
  }
  if (auth_method == Methods::tls_client_certificate) {
    Perenna::X509Thumbprint thumbprint;
    return thumbprint.DecodeBase64(auth_value.c_str()) && Canonical(thumbprint) == auth_value;
  }
  return auth_method == Methods::plain_pw && !auth_value.empty();
}

bool IsDisabled(std::string_view auth_method) noexcept {
  return auth_method.substr(0, DisabledPrefix.size()) == DisabledPrefix;
}

std::string_view EnabledMethod(std::string_view auth_method) noexcept {
  return IsDisabled(auth_method) ? auth_method.substr(DisabledPrefix.size()) : auth_method;
}

std::string DisabledMethod(std::string_view auth_method) {
  return std::string(DisabledPrefix).append(auth_method);
}

Secret GeneratePassword() {
  constexpr std::string_view Letters = "abcdefghijkmnpqrstuvwxyz23456789"; // 32: five bits of a byte each
  constexpr std::size_t Count = 20;
  constexpr std::size_t GroupSize = 4;
  std::array<unsigned char, Count> random{};
  if (RAND_bytes(random.data(), static_cast<int>(random.size())) != 1) {
    throw Failure(Failure::Kind::System, "the system's source of random numbers failed");
  }
  Secret password;
  for (std::size_t at = 0; at < Count; ++at) {
    if (at > 0 && at % GroupSize == 0) {
      password.Append('-');
    }
    password.Append(Letters[random.at(at) % Letters.size()]);
  }
  OPENSSL_cleanse(random.data(), random.size());
  return password;
}

std::string ThumbprintDigits(const std::string& thumbprint) {
  Perenna::X509Thumbprint decoded;
  std::array<char, ThumbprintTextBytes> text{};
  return decoded.DecodeBase64(thumbprint.c_str()) ? decoded.EncodeHex(text.data(), text.size()) : std::string();
}

std::string ThumbprintFromText(const std::string& text) {
  std::string bare = text;
  if (const std::size_t prefix = text.find(FingerprintPrefix); prefix != std::string::npos) {
    bare.erase(0, prefix + std::char_traits<char>::length(FingerprintPrefix));
  }
  std::string digits = bare;
  digits.erase(std::remove(digits.begin(), digits.end(), ':'), digits.end());
  Perenna::X509Thumbprint thumbprint;
  if (!thumbprint.DecodeHex(digits.c_str()) && !thumbprint.DecodeBase64(bare.c_str())) {
    throw Failure(Failure::Kind::Input,
                  Quoted(text) + " is not a SHA-1 thumbprint: 40 hexadecimal digits, with or without colons, "
                                 "or 28 characters of base64");
  }
  return Canonical(thumbprint);
}

std::string ThumbprintFromFile(const std::string& file) {
  std::ifstream in(file, std::ios::binary);
  std::string bytes(MaximumCertificateBytes, '\0');
  in.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  bytes.resize(static_cast<std::size_t>(in.gcount()));
  if (bytes.empty()) {
    throw Failure(Failure::Kind::Input, "cannot read " + Quoted(file) + ", or it is empty");
  }
  Perenna::X509Certificate certificate;
  const auto* const der = reinterpret_cast<const Tarn::byte_t*>(bytes.data());
  if (certificate.DecodeDER(der, static_cast<unsigned>(bytes.size())).Failed() &&
      certificate.DecodePEM(bytes).Failed()) {
    throw Failure(Failure::Kind::Input, Quoted(file) + " holds no X.509 certificate in PEM or DER form");
  }
  return Canonical(certificate.Thumbprint());
}

std::string ThumbprintFromPem(const std::string& text) {
  Perenna::X509Certificate certificate;
  if (text.size() > MaximumCertificateBytes || certificate.DecodePEM(text).Failed()) {
    throw Failure(Failure::Kind::Input, "the certificate is no X.509 certificate in PEM form");
  }
  return Canonical(certificate.Thumbprint());
}

std::string UserIdFault(std::string_view user_id, bool with_password) {
  if (user_id.empty()) {
    return "is empty";
  }
  if (with_password && user_id.find(':') != std::string_view::npos) {
    return "holds a colon: HTTP Basic authentication ends the user id there";
  }
  const auto is_control = [](char byte) { return (byte >= 0 && byte < ' ') || byte == '\x7f'; };
  if (std::any_of(user_id.begin(), user_id.end(), is_control)) {
    return "holds a control character, which no HTTP header field carries";
  }
  if (user_id.front() == ' ' || user_id.back() == ' ') {
    return "begins or ends with a space, which HTTP header fields lose";
  }
  return {};
}

std::string UserOfThumbprint(Database& database, const std::string& thumbprint) {
  const auto users = database.Texts("SELECT user_id FROM users WHERE auth_method = 'tls_client_certificate' AND "
                                    "auth_value = ? ORDER BY rowid LIMIT 1",
                                    {thumbprint});
  return users.empty() ? std::string() : users.front();
}

} // namespace AccessDirectory
