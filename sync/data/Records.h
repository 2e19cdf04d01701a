#pragma once

#include <optional>
#include <string>

#include "sync/store/Client.h"
#include "sync/store/Wire.h"

namespace Sync {

/// The version of the keys and values that this program reads and writes.
constexpr int StoreSchema = 1;

/// `current`: which directory the store holds, and in which generation of keys.
struct Current {
  Revision generation = 0;
  std::string directory; ///< UUID, for good
  Revision modified = 0;
};

/// `N/head`: written by every change of the generation, so that changes come one after the other.
struct Head {
  std::string txn; ///< UUID of the change that wrote it
  std::string writer;
  std::string time;
  Revision successor = 0; ///< the generation that took this one's place; 0: it is in use
  Revision modified = 0;
  std::string cluster;   ///< that it was read from
  Revision revision = 0; ///< of the store when it was read

  std::string Text() const;
};

/// A head for a change made now by this machine, under a new id.
Head NewHead();
/// A new random UUID.
std::string NewUuid();

/// Keys with the prefix of the store.
std::string CurrentKey(const Client& client);
std::string GenerationPrefix(const Client& client, Revision generation);
std::string HeadKey(const Client& client, Revision generation);

std::string TextOf(const Current& current);
/// Both throw `StoreError` (Refused) for a value that they cannot be, or that a newer program wrote.
Current CurrentFrom(const KeyValue& pair);
Head HeadFrom(const KeyValue& pair);

/// Read them, as a majority confirms them now, or the head as it was at a revision. Nothing where there is none.
std::optional<Current> ReadCurrent(Client& client);
std::optional<Head> ReadHead(Client& client, Revision generation, Revision at = 0);

} // namespace Sync
