#pragma once

#include <cstdint>
#include <optional>

#include "directory/replica/ReplicaRow.h"
#include "sync/data/Records.h"

namespace Sync {

/// When the file was last known to be the newest state: the moment before a read that a majority confirmed, once the
/// file holds what that read saw. The clock is CLOCK_BOOTTIME, in nanoseconds.
class Freshness {
public:
  enum class Finding {
    Fresh,  ///< the file holds what the read saw
    Behind, ///< it does not yet
    Another ///< the read cannot come from the file's store
  };

  /// Takes what a read that was sent at `sent` saw of the file's generation.
  Finding Saw(std::int64_t sent, const std::optional<Head>& head, const AccessDirectory::ReplicaRow& row);

  /// Looks again whether the file has reached what was seen.
  void Reached(const AccessDirectory::ReplicaRow& row);

  /// 0: never yet.
  std::int64_t FreshAt() const noexcept { return m_FreshAt; }
  /// Since when the file has been behind; 0: it is not.
  std::int64_t BehindSince() const noexcept { return m_Wanted ? m_WantedSince : 0; }
  /// Forgets what another file was.
  void Forget() { *this = {}; }

private:
  std::int64_t m_FreshAt = 0;
  std::int64_t m_WantedSince = 0;
  std::optional<Revision> m_Wanted; // the oldest head that was seen and is not in the file
};

} // namespace Sync
