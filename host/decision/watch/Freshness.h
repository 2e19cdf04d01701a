#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "host/Configuration.h"

namespace Host {

/// How old this machine's copy of the directory is, where an agent keeps it in step with a store. The agent's note is
/// read by `Look`; the age goes on growing between two looks, so that nobody who does not look is taken for fresh.
/// `Look` belongs to one thread, everything else to any.
class Freshness {
public:
  /// Looks for the first time. Where no store is configured and no agent has left a note, nothing is ever stale.
  explicit Freshness(const Configuration& configuration);

  /// Whether there is an age to look at; else `Look` does nothing.
  bool IsWatched() const noexcept { return m_IsWatched; }
  /// Reads the agent's note. To be called once a second.
  void Look() noexcept;

  /// Nothing while it is not known.
  std::optional<std::chrono::nanoseconds> Age() const noexcept;
  /// Whether the copy is older than `Sync.StaleSeconds`; one of unknown age is.
  bool IsStale() const noexcept;
  /// Whether nothing may be decided from the copy now: it is stale, and `Sync.OnStale` is "refuse".
  bool Forbids() const noexcept { return m_Refuses && IsStale(); }

private:
  const std::string m_Database;
  const std::chrono::nanoseconds m_Limit;
  const bool m_Refuses;
  bool m_IsWatched;
  std::atomic<std::int64_t> m_FreshAt{0}; // CLOCK_BOOTTIME, nanoseconds; 0: not known
};

} // namespace Host
