// May this user perform this request, and which methods could it use there.

#include "LocalAccessManager.h"

#include <new>
#include <set>

#include "Regexp.h"
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

/// A column as the reader of single columns gives it: the bytes of a text or of a blob.
std::string Bytes(const Perenna::PListData& column) {
  if (!column.HasType(Perenna::IT_DATA)) {
    return column.GetValue();
  }
  Tarn::ByteString bytes;
  if (!column.GetValue(bytes)) {
    throw std::bad_alloc(); // it was encoded from bytes: nothing else can fail
  }
  return {reinterpret_cast<const char*>(bytes.RoData()), bytes.Length()};
}

} // namespace

bool UserManager::TestRequestForUser(const Perenna::HTTPRequest& request, const std::string& user_id) {
  if (!CanBeJudged(request, user_id) || m_db == nullptr) {
    return false;
  }
  const Tarn::AutoMutex l(m_Lock);
  const DecisionUnderWay decision(m_db);
  SQLQuery::GetFilterForRequest query(m_db);
  if (query.Exec(request.Method(), user_id, request.URL()) != Tarn::RESULT_OK) {
    return false;
  }
  std::set<std::string> action_set;
  std::string action;
  while (query.GetNextResult(action)) {
    action_set.insert(action);
  }
  return !decision.InDoubt() && action_set.count(Deny) == 0 && action_set.count(Allow) > 0;
}

bool UserManager::GetOptionsMethods(const Perenna::HTTPRequest& request, const std::string& user_id,
                                    Perenna::PListArray& method_set) {
  if (!CanBeJudged(request, user_id) || m_db == nullptr) {
    return false;
  }
  const Tarn::AutoMutex l(m_Lock);
  const DecisionUnderWay decision(m_db);
  SQLQuery::GetMethods query(m_db);
  if (query.Exec(user_id, request.URL()) != Tarn::RESULT_OK) {
    return false;
  }
  std::set<std::string> allow_method_set;
  std::set<std::string> deny_method_set;
  Perenna::PListDict row;
  while (query.GetNextResult(row)) {
    const Perenna::PListData& method = row.GetData(Strings::method);
    if (!method.HasType(Perenna::IT_STRING)) {
      continue; // equals no request's method
    }
    const std::string action = Bytes(row.GetData(Strings::action));
    if (action == Deny) {
      deny_method_set.insert(method.GetValue());
    } else if (action == Allow) {
      allow_method_set.insert(method.GetValue());
    }
  }
  if (decision.InDoubt()) {
    return false;
  }
  Perenna::PListArray allowed; // first whole, then handed over
  for (const std::string& method : allow_method_set) {
    if (deny_method_set.count(method) == 0) {
      allowed.AppendText(method);
    }
  }
  method_set.splice(method_set.end(), allowed);
  return true;
}

} // namespace LocalAccessManager
