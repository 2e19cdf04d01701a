// Groups and membership.

#include "LocalAccessManager.h"

#include "Entries.h"
#include "PN_Regex.h"

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

} // namespace

bool UserManager::GroupExists(const std::string& group_id) {
  return Exists<GroupEntry>({m_db, m_Lock}, group_id);
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
  return Run<SQLQuery::CreateGroup>({m_db, m_Lock}, dict);
}

Tarn::Result_t UserManager::DeleteGroup(const std::string& group_id) {
  return Remove<GroupEntry>({m_db, m_Lock}, group_id);
}

Tarn::Result_t UserManager::SetGroupUsers(const std::string& group_id, const Perenna::PListArray& user_list) {
  return ReplaceMemberships<GroupEntry, UserEntry>({m_db, m_Lock}, group_id, user_list);
}

Tarn::Result_t UserManager::SetUserGroups(const std::string& user_id, const Perenna::PListArray& group_list) {
  return ReplaceMemberships<UserEntry, GroupEntry>({m_db, m_Lock}, user_id, group_list);
}

Tarn::Result_t UserManager::GetGroups(Perenna::PagedResults::ResultState& page_params,
                                      Perenna::PListDict& response_document) {
  return ListEntries<GroupEntry>({m_db, m_Lock}, page_params, response_document);
}

} // namespace LocalAccessManager
