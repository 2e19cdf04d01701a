// Groups and membership.

#include "LocalAccessManager.h"

#include <set>

#include "Listing.h"
#include "PN_Regex.h"
#include "SQLQuery.h"
#include "TN_log.h"
#include "TerminatedText.h"

namespace LocalAccessManager {

namespace {

/// Whether a group id, up to its first NUL, is made of ASCII letters, digits, "_" and "-" as a whole. The pattern alone
/// would not do: its anchors match at line breaks too, and its ranges follow the host's locale.
bool IsGroupId(const std::string& group_id) {
  constexpr auto Allowed = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-";
  const Perenna::RegularExpression name_regex("^[a-zA-Z0-9_-]+$");
  const std::string terminated = Terminated(group_id);
  return name_regex.match(terminated) && terminated.find_first_not_of(Allowed) == std::string::npos;
}

/// Which messages a list of ids is refused with.
struct IdListMessages {
  const char* not_text;
  const char* unknown; // takes the id
};

constexpr IdListMessages UserListMessages = {"Unexpected non-string type in users array.\n",
                                             "Unknown user \"%s\" in users array.\n"};
constexpr IdListMessages GroupListMessages = {"Unexpected non-string type in groups array.\n",
                                              "Unknown group \"%s\" in groups array.\n"};

/// Collects the ids of a list, each once and up to its first NUL, as they will be stored. Stops at the first item that
/// is not a text or that `exists` does not know, logs it and returns Tarn::RESULT_PARAM. Called without the lock, which
/// `exists` takes.
template <class Exists>
Tarn::Result_t CollectIds(const Perenna::PListArray& list, const IdListMessages& messages, Exists exists,
                          std::set<std::string>& unique_ids) {
  for (const Perenna::PListItem* item : list) {
    const auto* const id_item = dynamic_cast<const Perenna::PListData*>(item);
    if (!item->HasType(Perenna::IT_STRING) || id_item == nullptr) {
      Tarn::DefaultLogSink().Error("%s", messages.not_text);
      return Tarn::RESULT_PARAM;
    }
    const std::string id = Terminated(id_item->GetValue());
    if (!exists(id)) {
      Tarn::DefaultLogSink().Error(messages.unknown, id.c_str());
      return Tarn::RESULT_PARAM;
    }
    unique_ids.insert(id);
  }
  return Tarn::RESULT_OK;
}

} // namespace

bool UserManager::GroupExists(const std::string& group_id) {
  if (m_db == nullptr) {
    return false;
  }
  const Tarn::AutoMutex l(m_Lock);
  SQLQuery::GetGroup group_query(m_db);
  return group_query.Exec(group_id) == Tarn::RESULT_OK;
}

Tarn::Result_t UserManager::CreateGroup(const Perenna::PListDict& dict) {
  if (m_db == nullptr) {
    return Perenna::RESULT_DB_FAILURE;
  }
  const std::string& group_id = dict.GetData(Strings::group_id).GetValue();
  const std::string& group_name = dict.GetData(Strings::group_name).GetValue();
  if (IsEmptyTerminated(group_id) || IsEmptyTerminated(group_name)) {
    Tarn::DefaultLogSink().Error("Empty group_id or group_name.\n");
    return Tarn::RESULT_PARAM;
  }
  if (!IsGroupId(group_id)) {
    Tarn::DefaultLogSink().Error("Invalid characters in group_id.\n");
    return Tarn::RESULT_PARAM;
  }
  if (GroupExists(group_id)) {
    return Tarn::RESULT_FILEEXISTS;
  }
  const Tarn::AutoMutex l(m_Lock);
  SQLQuery::CreateGroup group_query(m_db);
  return group_query.Exec(dict);
}

Tarn::Result_t UserManager::DeleteGroup(const std::string& group_id) {
  if (m_db == nullptr) {
    return Perenna::RESULT_DB_FAILURE;
  }
  if (!GroupExists(group_id)) {
    return Tarn::RESULT_NOT_FOUND;
  }
  const Tarn::AutoMutex l(m_Lock);
  // Neither result is examined: the deletion goes as far as it can, and the wrapper has logged what failed.
  SQLQuery::DeleteGroupUsers user_query(m_db);
  static_cast<void>(user_query.Exec(group_id));
  SQLQuery::DeleteGroup group_query(m_db);
  static_cast<void>(group_query.Exec(group_id));
  return Tarn::RESULT_OK;
}

Tarn::Result_t UserManager::SetGroupUsers(const std::string& group_id, const Perenna::PListArray& user_list) {
  if (m_db == nullptr) {
    return Perenna::RESULT_DB_FAILURE;
  }
  if (!GroupExists(group_id)) {
    return Tarn::RESULT_NOT_FOUND;
  }
  std::set<std::string> unique_users;
  Tarn::Result_t result = CollectIds(
      user_list, UserListMessages, [this](const std::string& id) { return UserExists(id); }, unique_users);
  if (result.Failed()) {
    return result;
  }
  const Tarn::AutoMutex l(m_Lock);
  SQLQuery::DeleteGroupUsers reset_query(m_db);
  static_cast<void>(reset_query.Exec(group_id)); // not examined: the inserts report what is wrong
  for (const std::string& user_id : unique_users) {
    SQLQuery::AddGroupUser add_group_query(m_db);
    result = add_group_query.Exec(group_id, user_id);
  }
  return result;
}

Tarn::Result_t UserManager::SetUserGroups(const std::string& user_id, const Perenna::PListArray& group_list) {
  if (m_db == nullptr) {
    return Perenna::RESULT_DB_FAILURE;
  }
  if (!UserExists(user_id)) {
    return Tarn::RESULT_NOT_FOUND;
  }
  std::set<std::string> unique_groups;
  Tarn::Result_t result = CollectIds(
      group_list, GroupListMessages, [this](const std::string& id) { return GroupExists(id); }, unique_groups);
  if (result.Failed()) {
    return result;
  }
  const Tarn::AutoMutex l(m_Lock);
  SQLQuery::DeleteUserGroups reset_query(m_db);
  static_cast<void>(reset_query.Exec(user_id)); // not examined: the inserts report what is wrong
  for (const std::string& group_id : unique_groups) {
    SQLQuery::AddGroupUser add_group_query(m_db);
    result = add_group_query.Exec(group_id, user_id);
  }
  return result;
}

Tarn::Result_t UserManager::GetGroups(Perenna::PagedResults::ResultState& page_params,
                                      Perenna::PListDict& response_document) {
  if (m_db == nullptr) {
    return Perenna::RESULT_DB_FAILURE;
  }
  const Tarn::AutoMutex l(m_Lock);
  if (!ListPage<SQLQuery::GetGroups>(m_db, page_params, response_document).Failed()) {
    AddMemberships<SQLQuery::GetGroupUsers>(m_db, Strings::group_id, "users", response_document);
  }
  return Tarn::RESULT_OK;
}

} // namespace LocalAccessManager
