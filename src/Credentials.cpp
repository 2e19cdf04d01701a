// Stored credentials: the password expression and both checks. The constant that goes into every digest stays private
// to this file.

#include "LocalAccessManager.h"

#include <array>

#include "PN_Digest.h"
#include "SQLQuery.h"
#include "TN_log.h"
#include "TN_memio.h"

namespace {

constexpr std::size_t SaltTextBytes = 64;
constexpr std::size_t DigestTextBytes = 128;

// Mixed into every digest of every database: changing a byte makes every stored password unusable.
constexpr std::array<Tarn::byte_t, 16> password_digest_sha256_buf = {0x9d, 0x41, 0xe7, 0x2c, 0x58, 0x06, 0xb3, 0xfa,
                                                                     0x77, 0x1e, 0xc4, 0x90, 0x2b, 0x6f, 0xd5, 0x83};

/// The digest text of a password under a salt, given as its text.
std::string PasswordDigest(const std::string& salt, const std::string& password) {
  Perenna::SHA256 sha_ctx;
  sha_ctx.Update(password_digest_sha256_buf.data(), static_cast<unsigned>(password_digest_sha256_buf.size()));
  sha_ctx.Update(salt);
  sha_ctx.Update(password);
  sha_ctx.Finalize();
  std::array<char, DigestTextBytes> digest_buf{};
  return sha_ctx.StringValue(digest_buf.data(), digest_buf.size(), true);
}

/// Whether a row has a column of that name that holds a text.
bool HoldsText(const Perenna::PListDict& row, const std::string& column) {
  Perenna::PListData* item = nullptr;
  return row.GetData(column, item) && item->HasType(Perenna::IT_STRING);
}

} // namespace

std::string calculate_sha_password_expression(const std::string& password) {
  Tarn::SymmetricKey salt;
  Tarn::GenRandomValue(salt);
  std::array<char, SaltTextBytes> salt_buf{};
  const std::string salt_text = salt.EncodeHex(salt_buf.data(), salt_buf.size());
  return salt_text + ":" + PasswordDigest(salt_text, password);
}

namespace LocalAccessManager {

std::string DecodeBase64(const std::string& in) {
  if (in.empty()) {
    return {};
  }
  const auto size = static_cast<unsigned>(in.size());
  Tarn::ByteString data(size);
  unsigned char_count = 0;
  if (data.Capacity() < in.size() || Tarn::base64decode(in.c_str(), data.Data(), data.Capacity(), &char_count) != 0) {
    return {};
  }
  return {reinterpret_cast<const char*>(data.RoData()), char_count};
}

bool SplitColonPair(const std::string& pair_str, std::string& first, std::string& second) {
  const std::size_t div = pair_str.find(':');
  if (div == std::string::npos) {
    return false;
  }
  // Taken apart before either output is written: one of them may be `pair_str` itself.
  std::string before = pair_str.substr(0, div);
  second = pair_str.substr(div + 1);
  first = std::move(before);
  return true;
}

bool UserManager::TestUserIdAndPassword(const Perenna::HTTPRequest& /*request*/, const std::string& user_id,
                                        const std::string& password) {
  if (m_db == nullptr) {
    return false;
  }
  Perenna::PListDict dict;
  {
    const Tarn::AutoMutex l(m_Lock);
    SQLQuery::GetUserById user_query(m_db);
    if (user_query.Exec(user_id) != Tarn::RESULT_OK || !user_query.GetNextResult(dict)) {
      return false;
    }
  }
  // An id with a NUL finds the row of its first part: that is somebody else.
  if (dict.GetData(Strings::user_id).GetValue() != user_id) {
    return false;
  }

  const std::string& auth_method = dict.GetData(Strings::auth_method).GetValue();
  const std::string& auth_value = dict.GetData(Strings::auth_value).GetValue();
  if (auth_method == Strings::plain_pw) {
    Tarn::DefaultLogSink().Debug("auth_method: \"plain_pw\".\n");
    // In a file of another schema the value may be no text, or missing: neither is an empty password.
    return HoldsText(dict, Strings::auth_value) && Tarn::EqualConstantTime(password, auth_value);
  }
  if (auth_method == Strings::sha256) {
    Tarn::DefaultLogSink().Debug("auth_method: \"sha256\".\n");
    std::string salt;
    std::string digest;
    return SplitColonPair(auth_value, salt, digest) && Tarn::EqualConstantTime(PasswordDigest(salt, password), digest);
  }
  if (auth_method == Strings::tls_client_certificate) {
    Tarn::DefaultLogSink().Debug("ignoring auth_method: \"tls_client_certificate\" in TestUserIdAndPassword().\n");
    return false;
  }
  Tarn::DefaultLogSink().Error("Unexpected auth_method: \"%s\".\n", auth_method.c_str());
  return false;
}

bool UserManager::TestUserCertificate(const Perenna::HTTPRequest& /*request*/,
                                      const Perenna::X509Certificate& user_cert, std::string& user_id) {
  const Perenna::X509Thumbprint& thumbprint = user_cert;
  // A certificate that was never read has no value and twenty zero bytes for a thumbprint: nobody's.
  const bool is_read = thumbprint.HasValue() || thumbprint != Perenna::X509Thumbprint();
  if (m_db == nullptr || !is_read) {
    return false;
  }
  Perenna::PListDict dict;
  {
    const Tarn::AutoMutex l(m_Lock);
    SQLQuery::GetUserByCertificate user_query(m_db);
    if (user_query.Exec(thumbprint) != Tarn::RESULT_OK || !user_query.GetNextResult(dict)) {
      return false;
    }
  }
  if (!HoldsText(dict, Strings::user_id)) {
    return false; // its text form might be somebody else's id
  }
  user_id = dict.GetData(Strings::user_id).GetValue();
  return true;
}

} // namespace LocalAccessManager
