// Filters: stored, removed and listed as they are; RequestAuthorization.cpp gives them their meaning.

#include "LocalAccessManager.h"

#include "Entries.h"

namespace LocalAccessManager {

Tarn::Result_t UserManager::CreateFilter(const Perenna::PListDict& dict) {
  return Run<SQLQuery::CreateFilter>({m_db, m_Lock}, dict);
}

Tarn::Result_t UserManager::DeleteFilter(const Perenna::PListDict& dict) {
  return Run<SQLQuery::DeleteFilter>({m_db, m_Lock}, dict);
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
