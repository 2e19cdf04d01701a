#pragma once

#include <string>

#include "directory/Progress.h"
#include "sync/data/Records.h"
#include "sync/replica/Replica.h"
#include "sync/store/Client.h"

namespace Sync {

/// What a full synchronisation did.
struct Synchronised {
  std::size_t entries = 0; ///< that the store holds
  std::size_t changed = 0; ///< rows of the file that were others
};

/// Makes the file the store's present state: reads all of its generation at one revision and changes what differs.
/// Throws `StoreError`, and `AccessDirectory::Failure` for what the file does not take; the file then is as it was.
Synchronised Synchronise(Client& client, Replica& replica, const Current& current);

/// Makes `file`, which must not exist, a replica of what the store holds. Nobody sees it before it is whole. Throws as
/// above, also when the store holds nothing.
Synchronised MakeReplica(Client& client, const std::string& file);

} // namespace Sync
