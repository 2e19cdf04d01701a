#include "sync/agent/Freshness.h"

namespace Sync {

Freshness::Finding Freshness::Saw(std::int64_t sent, const std::optional<Head>& head,
                                  const AccessDirectory::ReplicaRow& row) {
  if (!head || head->revision < row.revision) {
    return Finding::Another;
  }
  if (head->modified <= row.revision && head->txn != row.head_txn) {
    return Finding::Another;
  }
  if (head->modified <= row.revision && head->successor == 0) {
    m_Wanted.reset();
    m_FreshAt = sent;
    return Finding::Fresh;
  }
  if (!m_Wanted) {
    m_Wanted = head->modified;
    m_WantedSince = sent;
  }
  return Finding::Behind;
}

void Freshness::Reached(const AccessDirectory::ReplicaRow& row) {
  if (m_Wanted && *m_Wanted <= row.revision) {
    m_FreshAt = m_WantedSince;
    m_Wanted.reset();
  }
}

} // namespace Sync
