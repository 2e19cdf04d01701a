// May this user perform this request, and which methods could it use there.

#include "LocalAccessManager.h"

#include <set>

#include "SQLQuery.h"
#include "TerminatedText.h"

namespace LocalAccessManager {

namespace {

const std::string Allow = "Allow";
const std::string Deny = "Deny";

/// An id or a URL that holds a NUL would be judged as another, shorter one.
bool CanBeJudged(const Perenna::HTTPRequest& request, const std::string& user_id) {
  return !user_id.empty() && !EndsEarly(user_id) && !EndsEarly(request.URL());
}

} // namespace

bool UserManager::TestRequestForUser(const Perenna::HTTPRequest& request, const std::string& user_id) {
  if (!CanBeJudged(request, user_id) || m_db == nullptr) {
    return false;
  }
  const Tarn::AutoMutex l(m_Lock);
  SQLQuery::GetFilterForRequest query(m_db);
  if (query.Exec(request.Method(), user_id, request.URL()) != Tarn::RESULT_OK) {
    return false;
  }
  std::set<std::string> action_set;
  std::string action;
  while (query.GetNextResult(action)) {
    action_set.insert(action);
  }
  return action_set.count(Deny) == 0 && action_set.count(Allow) > 0;
}

bool UserManager::GetOptionsMethods(const Perenna::HTTPRequest& request, const std::string& user_id,
                                    Perenna::PListArray& method_set) {
  if (!CanBeJudged(request, user_id) || m_db == nullptr) {
    return false;
  }
  const Tarn::AutoMutex l(m_Lock);
  SQLQuery::GetMethods query(m_db);
  if (query.Exec(user_id, request.URL()) != Tarn::RESULT_OK) {
    return false;
  }
  std::set<std::string> allow_method_set;
  std::set<std::string> deny_method_set;
  Perenna::PListDict row;
  while (query.GetNextResult(row)) {
    const std::string& method = row.GetData(Strings::method).GetValue();
    const std::string& action = row.GetData(Strings::action).GetValue();
    if (action == Deny) {
      deny_method_set.insert(method);
    } else if (action == Allow) {
      allow_method_set.insert(method);
    }
  }
  for (const std::string& method : allow_method_set) {
    if (deny_method_set.count(method) == 0) {
      method_set.AppendText(method);
    }
  }
  return true;
}

} // namespace LocalAccessManager
