// Filters: stored, removed and listed as they are; RequestAuthorization.cpp gives them their meaning.

#include "LocalAccessManager.h"
#include "Listing.h"
#include "SQLQuery.h"

namespace LocalAccessManager {

Tarn::Result_t UserManager::CreateFilter(const Perenna::PListDict& dict) {
  if (m_db == nullptr) {
    return Perenna::RESULT_DB_FAILURE;
  }
  const Tarn::AutoMutex l(m_Lock);
  SQLQuery::CreateFilter query(m_db);
  return query.Exec(dict);
}

Tarn::Result_t UserManager::DeleteFilter(const Perenna::PListDict& dict) {
  if (m_db == nullptr) {
    return Perenna::RESULT_DB_FAILURE;
  }
  const Tarn::AutoMutex l(m_Lock);
  SQLQuery::DeleteFilter query(m_db);
  return query.Exec(dict);
}

Tarn::Result_t UserManager::GetFilters(Perenna::PagedResults::ResultState& page_params,
                                       Perenna::PListDict& response_document) {
  if (m_db == nullptr) {
    return Perenna::RESULT_DB_FAILURE;
  }
  const Tarn::AutoMutex l(m_Lock);
  return ListPage<SQLQuery::GetFilters>(m_db, page_params, response_document);
}

} // namespace LocalAccessManager
