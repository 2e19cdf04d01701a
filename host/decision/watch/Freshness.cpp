#include "host/decision/watch/Freshness.h"

#include <exception>

#include "directory/replica/SyncState.h"

namespace Host {

Freshness::Freshness(const Configuration& configuration)
    : m_Database(configuration.database_filename), m_Limit(std::chrono::seconds(configuration.sync.stale_seconds)),
      m_Refuses(configuration.sync.configured && configuration.sync.on_stale == OnStale::Refuse),
      m_IsWatched(configuration.sync.configured || AccessDirectory::ReadSyncState(m_Database).has_value()) {
  Look();
}

void Freshness::Look() noexcept {
  if (!m_IsWatched) {
    return;
  }
  std::int64_t fresh_at = 0;
  try {
    const std::optional<AccessDirectory::SyncState> state = AccessDirectory::ReadSyncState(m_Database);
    fresh_at = state ? state->fresh_at : 0;
  } catch (const std::exception&) {
    fresh_at = 0; // memory ran out: the age is not known
  }
  m_FreshAt.store(fresh_at, std::memory_order_relaxed);
}

std::optional<std::chrono::nanoseconds> Freshness::Age() const noexcept {
  const std::int64_t fresh_at = m_FreshAt.load(std::memory_order_relaxed);
  const std::int64_t now = AccessDirectory::BootTime();
  if (fresh_at <= 0 || fresh_at > now) {
    return std::nullopt;
  }
  return std::chrono::nanoseconds(now - fresh_at);
}

bool Freshness::IsStale() const noexcept {
  if (!m_IsWatched) {
    return false;
  }
  const std::optional<std::chrono::nanoseconds> age = Age();
  return !age || *age > m_Limit;
}

} // namespace Host
