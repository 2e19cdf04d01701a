#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "sync/replica/Replica.h"
#include "sync/store/Client.h"

namespace Sync {

/// One stream of changes, applied to a replica as they come.
class Follower {
public:
  /// Begins at the revision behind the replica's. Both outlive it.
  Follower(Client& client, Replica& replica);

  enum class End {
    None,     ///< there is more to come
    Replaced, ///< another generation took this one's place: a full synchronisation is due
    Lost,     ///< the stream ended, or what it began with is no longer kept: see `Reason`
    Overtaken ///< another program has written the file's row
  };
  /// Waits at most `patience` for changes, or until `descriptor` can be read, and applies what has come, many revisions
  /// in one transaction when many wait. Throws `AccessDirectory::Failure` for what the file does not take and
  /// `StoreError` for a key that is none.
  End Step(std::chrono::milliseconds patience, int descriptor);

  const std::string& Reason() const noexcept { return m_Reason; }
  /// Whether anything has come since this was last asked.
  bool HasHeard() noexcept { return std::exchange(m_Heard, false); }

private:
  End Take(const std::string& line);
  End TakeEvents(const std::vector<Event>& events);
  End Flush();

  Replica& m_Replica;
  std::string m_Prefix;
  std::unique_ptr<Stream> m_Stream;
  std::vector<Event> m_Fragments;
  std::vector<Change> m_Changes; // of whole revisions
  ReplicaRow m_After;
  std::string m_Reason;
  bool m_Heard = false;
};

} // namespace Sync
