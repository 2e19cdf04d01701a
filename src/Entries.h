#pragma once

#include <memory>
#include <set>
#include <string>

#include "LocalAccessManager.h"
#include "SQLQuery.h"
#include "TN_log.h"
#include "TerminatedText.h"

/// What users and groups have alike: the operations on either, written once for both.
///
/// The lock rule of all of them: the manager's lock is not recursive, so an operation tests what must exist before it
/// takes the lock, and then holds it from before its first statement until its last one is finalised. Between test and
/// statements another thread may change the directory. Without an open database none of them touches anything.
namespace LocalAccessManager {

/// What an operation works on: the manager's connection, null while it is closed, and the lock that guards it.
struct Directory {
  sqlite3* db;
  Tarn::Mutex& lock;
};

/// The two kinds of entry: their statements, what refuses a list of their ids, and the keys of a listing.
struct UserEntry {
  using Get = SQLQuery::GetUser;
  using List = SQLQuery::GetUsers;
  using Delete = SQLQuery::DeleteUser;
  using GetMemberships = SQLQuery::GetUserGroups;
  using DeleteMemberships = SQLQuery::DeleteUserGroups;
  static constexpr auto NotText = "Unexpected non-string type in users array.\n";
  static constexpr auto Unknown = "Unknown user \"%s\" in users array.\n";
  static constexpr auto Key = &Strings::user_id;
  static constexpr auto MembershipsKey = &Strings::groups;

  static Tarn::Result_t Join(SQLQuery::AddGroupUser& query, const std::string& user_id, const std::string& group_id) {
    return query.Exec(group_id, user_id);
  }
};

struct GroupEntry {
  using Get = SQLQuery::GetGroup;
  using List = SQLQuery::GetGroups;
  using Delete = SQLQuery::DeleteGroup;
  using GetMemberships = SQLQuery::GetGroupUsers;
  using DeleteMemberships = SQLQuery::DeleteGroupUsers;
  static constexpr auto NotText = "Unexpected non-string type in groups array.\n";
  static constexpr auto Unknown = "Unknown group \"%s\" in groups array.\n";
  static constexpr auto Key = &Strings::group_id;
  static constexpr auto MembershipsKey = &Strings::users;

  static Tarn::Result_t Join(SQLQuery::AddGroupUser& query, const std::string& group_id, const std::string& user_id) {
    return query.Exec(group_id, user_id);
  }
};

template <class EntryT> bool Exists(const Directory& directory, const std::string& id) {
  if (directory.db == nullptr) {
    return false;
  }
  const Tarn::AutoMutex l(directory.lock);
  typename EntryT::Get query(directory.db);
  return query.Exec(id) == Tarn::RESULT_OK;
}

/// Runs a statement that `dict` feeds.
template <class StatementT> Tarn::Result_t Run(const Directory& directory, const Perenna::PListDict& dict) {
  if (directory.db == nullptr) {
    return Perenna::RESULT_DB_FAILURE;
  }
  const Tarn::AutoMutex l(directory.lock);
  StatementT query(directory.db);
  return query.Exec(dict);
}

/// Removes an entry and its memberships.
template <class EntryT> Tarn::Result_t Remove(const Directory& directory, const std::string& id) {
  if (directory.db == nullptr) {
    return Perenna::RESULT_DB_FAILURE;
  }
  if (!Exists<EntryT>(directory, id)) {
    return Tarn::RESULT_NOT_FOUND;
  }
  const Tarn::AutoMutex l(directory.lock);
  // Neither result is examined: the deletion goes as far as it can, and the wrapper has logged what failed.
  typename EntryT::DeleteMemberships memberships_query(directory.db);
  static_cast<void>(memberships_query.Exec(id));
  typename EntryT::Delete query(directory.db);
  static_cast<void>(query.Exec(id));
  return Tarn::RESULT_OK;
}

/// Collects the ids of a list, each once and up to its first NUL, as they will be stored. Stops at the first item that
/// is not a text or that names no entry, logs it and returns Tarn::RESULT_PARAM. Takes the lock for each.
template <class EntryT>
Tarn::Result_t CollectIds(const Directory& directory, const Perenna::PListArray& list,
                          std::set<std::string>& unique_ids) {
  for (const Perenna::PListItem* item : list) {
    const auto* const id_item = dynamic_cast<const Perenna::PListData*>(item);
    if (!item->HasType(Perenna::IT_STRING) || id_item == nullptr) {
      Tarn::DefaultLogSink().Error(EntryT::NotText);
      return Tarn::RESULT_PARAM;
    }
    const std::string id = Terminated(id_item->GetValue());
    if (!Exists<EntryT>(directory, id)) {
      Tarn::DefaultLogSink().Error(EntryT::Unknown, id.c_str());
      return Tarn::RESULT_PARAM;
    }
    unique_ids.insert(id);
  }
  return Tarn::RESULT_OK;
}

/// Replaces the memberships of one entry by those with the entries of the other kind that `list` names.
template <class EntryT, class OtherT>
Tarn::Result_t ReplaceMemberships(const Directory& directory, const std::string& id, const Perenna::PListArray& list) {
  if (directory.db == nullptr) {
    return Perenna::RESULT_DB_FAILURE;
  }
  if (!Exists<EntryT>(directory, id)) {
    return Tarn::RESULT_NOT_FOUND;
  }
  std::set<std::string> unique_ids;
  Tarn::Result_t result = CollectIds<OtherT>(directory, list, unique_ids);
  if (result.Failed()) {
    return result;
  }
  const Tarn::AutoMutex l(directory.lock);
  typename EntryT::DeleteMemberships reset_query(directory.db);
  static_cast<void>(reset_query.Exec(id)); // not examined: the inserts report what is wrong
  for (const std::string& other_id : unique_ids) {
    SQLQuery::AddGroupUser query(directory.db);
    result = EntryT::Join(query, id, other_id);
  }
  return result;
}

/// Runs the listing statement and, unless its first step failed, writes the requested page. Returns that step's result.
/// The caller holds the lock.
template <class StatementT>
Tarn::Result_t ListPage(sqlite3* db, Perenna::PagedResults::ResultState& page_params,
                        Perenna::PListDict& response_document) {
  StatementT query(db);
  Tarn::Result_t result = query.Exec();
  if (!result.Failed()) {
    page_params.HasRows = result == Tarn::RESULT_OK;
    Perenna::Sqlite3::GetPagedResults<StatementT>(query, page_params, response_document);
  }
  return result;
}

/// Writes a page of entries, each with the ids of its memberships. A query for these that fails leaves its entry with
/// what was read until then.
template <class EntryT>
Tarn::Result_t ListEntries(const Directory& directory, Perenna::PagedResults::ResultState& page_params,
                           Perenna::PListDict& response_document) {
  if (directory.db == nullptr) {
    return Perenna::RESULT_DB_FAILURE;
  }
  const Tarn::AutoMutex l(directory.lock);
  Perenna::PListArray* results = nullptr;
  // After a failure "results" is the caller's own, if there is one.
  if (ListPage<typename EntryT::List>(directory.db, page_params, response_document).Failed() ||
      !response_document.GetArray(Perenna::PagedResults::results, results)) {
    return Tarn::RESULT_OK;
  }
  for (Perenna::PListItem* row : *results) {
    auto* const dict = dynamic_cast<Perenna::PListDict*>(row);
    if (dict == nullptr) {
      continue;
    }
    auto owned = std::make_unique<Perenna::PListArray>();
    Perenna::PListArray& ids = *owned;
    dict->SetItem(*EntryT::MembershipsKey, owned.release());
    typename EntryT::GetMemberships query(directory.db);
    if (query.Exec(dict->GetData(*EntryT::Key).GetValue()) == Tarn::RESULT_OK) {
      std::string id;
      while (query.GetNextResult(id)) {
        ids.AppendText(id);
      }
    }
  }
  return Tarn::RESULT_OK;
}

} // namespace LocalAccessManager
