#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace AccessDirectory {

/// What the agent of a replica last found, kept in a small file beside it (its name and "-sync"): a note in the
/// database itself would count as a change, and every host would forget its decisions each time.
struct SyncState {
  std::string phase;  ///< "following", "synchronising", "away", "stopped" or "failing"
  std::string reason; ///< why it does not follow; a sentence, empty otherwise
  std::string member; ///< of the store, that was asked last
  std::int64_t pid = 0;
  /// When the last read was sent that showed the file to be the newest state, nanoseconds of CLOCK_BOOTTIME, which
  /// counts while the machine sleeps; 0: none yet.
  std::int64_t fresh_at = 0;
};

/// Nanoseconds of CLOCK_BOOTTIME.
std::int64_t BootTime() noexcept;

/// The name of the file that holds the state of `database`.
std::string SyncStateFile(const std::string& database);

/// Puts the state in the place of the one before, in one step. Throws `Failure`.
void WriteSyncState(const std::string& database, const SyncState& state);

/// Nothing when there is none that speaks of this very file since the machine's last start.
std::optional<SyncState> ReadSyncState(const std::string& database);

/// How long ago the file was known to be the newest state; nothing when that is not known.
std::optional<std::chrono::nanoseconds> SyncAge(const std::string& database);

} // namespace AccessDirectory
