// Users: existence, creation, deletion, listing.

#include "LocalAccessManager.h"

#include <array>

#include "Entries.h"

namespace LocalAccessManager {

namespace {

constexpr std::size_t DateTextBytes = 64;

} // namespace

bool UserManager::UserExists(const std::string& user_id) {
  return Exists<UserEntry>({m_db, m_Lock}, user_id);
}

Tarn::Result_t UserManager::CreateUser(const Perenna::PListDict& dict) {
  if (m_db == nullptr) {
    return Perenna::RESULT_DB_FAILURE;
  }
  const std::string& user_id = dict.GetData(Strings::user_id).GetValue();
  const std::string& create_user = dict.GetData(Strings::create_user).GetValue();
  const std::string& password = dict.GetData(Strings::password).GetValue();
  const std::string& certificate = dict.GetData(Strings::certificate).GetValue();

  if (IsEmptyTerminated(user_id)) {
    Tarn::DefaultLogSink().Error("Empty user_id.\n");
    return Tarn::RESULT_PARAM;
  }
  if (UserExists(user_id)) {
    return Tarn::RESULT_FILEEXISTS;
  }
  if (!UserExists(create_user)) {
    Tarn::DefaultLogSink().Error("Non-existant create_user.\n");
    return Tarn::RESULT_STATE;
  }

  // What was tested is what is stored: items of other kinds would be bound as something else than their texts.
  Perenna::PListDict record(dict);
  record.SetValue(Strings::user_id, user_id);
  record.SetValue(Strings::create_user, create_user);
  if (!password.empty()) {
    record.SetValue(Strings::auth_method, Strings::sha256);
    record.SetValue(Strings::auth_value, calculate_sha_password_expression(password));
  } else if (!certificate.empty()) {
    // The text is stored as it came; decoding only proves that it is a thumbprint.
    Perenna::X509Thumbprint test_thumbprint;
    if (!test_thumbprint.DecodeBase64(certificate.c_str())) {
      Tarn::DefaultLogSink().Error("Certificate thumbprint decoding error.\n");
      return Tarn::RESULT_PARAM;
    }
    record.SetValue(Strings::auth_method, Strings::tls_client_certificate);
    record.SetValue(Strings::auth_value, certificate);
  } else {
    Tarn::DefaultLogSink().Error("Unexpected authentication type.\n");
    return Tarn::RESULT_PARAM;
  }
  const Tarn::Timestamp now;
  std::array<char, DateTextBytes> buf{};
  record.SetValue(Strings::create_date, now.EncodeString(buf.data(), buf.size()));

  return Run<SQLQuery::CreateUser>({m_db, m_Lock}, record);
}

Tarn::Result_t UserManager::SetUserCredentials(const Perenna::PListDict& /*dict*/) {
  return Tarn::RESULT_NOTIMPL;
}

Tarn::Result_t UserManager::DeleteUser(const std::string& user_id) {
  return Remove<UserEntry>({m_db, m_Lock}, user_id);
}

Tarn::Result_t UserManager::GetUsers(Perenna::PagedResults::ResultState& page_params,
                                     Perenna::PListDict& response_document) {
  return ListEntries<UserEntry>({m_db, m_Lock}, page_params, response_document);
}

} // namespace LocalAccessManager
