// Users: existence, creation, deletion, listing.

#include "LocalAccessManager.h"

#include <array>

#include "Listing.h"
#include "SQLQuery.h"
#include "TN_log.h"
#include "TerminatedText.h"

namespace LocalAccessManager {

namespace {

constexpr std::size_t DateTextBytes = 64;

} // namespace

bool UserManager::UserExists(const std::string& user_id) {
  if (m_db == nullptr) {
    return false;
  }
  const Tarn::AutoMutex l(m_Lock);
  SQLQuery::GetUser user_query(m_db);
  return user_query.Exec(user_id) == Tarn::RESULT_OK;
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

  Perenna::PListDict record(dict);
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

  const Tarn::AutoMutex l(m_Lock);
  SQLQuery::CreateUser user_query(m_db);
  return user_query.Exec(record);
}

Tarn::Result_t UserManager::SetUserCredentials(const Perenna::PListDict& /*dict*/) {
  return Tarn::RESULT_NOTIMPL;
}

Tarn::Result_t UserManager::DeleteUser(const std::string& user_id) {
  if (m_db == nullptr) {
    return Perenna::RESULT_DB_FAILURE;
  }
  if (!UserExists(user_id)) {
    return Tarn::RESULT_NOT_FOUND;
  }
  const Tarn::AutoMutex l(m_Lock);
  // Neither result is examined: the deletion goes as far as it can, and the wrapper has logged what failed.
  SQLQuery::DeleteUserGroups group_query(m_db);
  static_cast<void>(group_query.Exec(user_id));
  SQLQuery::DeleteUser user_query(m_db);
  static_cast<void>(user_query.Exec(user_id));
  return Tarn::RESULT_OK;
}

Tarn::Result_t UserManager::GetUsers(Perenna::PagedResults::ResultState& page_params,
                                     Perenna::PListDict& response_document) {
  if (m_db == nullptr) {
    return Perenna::RESULT_DB_FAILURE;
  }
  const Tarn::AutoMutex l(m_Lock);
  if (!ListPage<SQLQuery::GetUsers>(m_db, page_params, response_document).Failed()) {
    AddMemberships<SQLQuery::GetUserGroups>(m_db, Strings::user_id, "groups", response_document);
  }
  return Tarn::RESULT_OK;
}

} // namespace LocalAccessManager
