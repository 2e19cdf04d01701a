#pragma once

#include <memory>
#include <string>

#include "PN_PagedResults.h"
#include "PN_Sqlite3.h"

namespace LocalAccessManager {

// The steps that the listings share. The caller holds the manager's lock.

/// Runs the listing statement and, unless its first step failed, writes the requested page. Returns that step's result.
template <class QueryClassT>
Tarn::Result_t ListPage(sqlite3* db, Perenna::PagedResults::ResultState& page_params,
                        Perenna::PListDict& response_document) {
  QueryClassT query(db);
  Tarn::Result_t result = query.Exec();
  if (!result.Failed()) {
    page_params.HasRows = result == Tarn::RESULT_OK;
    Perenna::Sqlite3::GetPagedResults<QueryClassT>(query, page_params, response_document);
  }
  return result;
}

/// Gives every row of the page an array under `array_key` with the ids that `QueryClassT` yields for the row's
/// `id_key`. A query that fails leaves that row's array with what was read until then.
template <class QueryClassT>
void AddMemberships(sqlite3* db, const std::string& id_key, const std::string& array_key,
                    Perenna::PListDict& response_document) {
  Perenna::PListArray* results = nullptr;
  if (!response_document.GetArray(Perenna::PagedResults::results, results)) {
    return;
  }
  for (Perenna::PListItem* row : *results) {
    auto* const dict = dynamic_cast<Perenna::PListDict*>(row);
    if (dict == nullptr) {
      continue;
    }
    auto* const ids = new Perenna::PListArray;
    dict->SetItem(array_key, ids); // owned by the row from here on
    QueryClassT query(db);
    if (query.Exec(dict->GetData(id_key).GetValue()) == Tarn::RESULT_OK) {
      std::string id;
      while (query.GetNextResult(id)) {
        ids->AppendText(id);
      }
    }
  }
}

} // namespace LocalAccessManager
