#pragma once

#include <string>
#include <vector>

#include "directory/Directory.h"
#include "sync/data/Records.h"
#include "sync/replica/Replica.h"
#include "sync/store/Client.h"

namespace Sync {

/// Where a change has arrived in the store.
struct Submitted {
  Revision generation = 0;
  Revision revision = 0;
};

/// Writes changes on the condition that `base` is still the newest head. Throws `AccessDirectory::ChangeConflict` when
/// it is not, and `StoreError`, TooLarge when the store takes no transaction of this size.
Submitted Submit(Client& client, Revision generation, const Head& base, const std::vector<Change>& changes);

/// Writes a whole directory as the next generation and makes it the current one, on the same condition. The one before
/// is removed.
Submitted SubmitWhole(Client& client, Revision generation, const Head& base, const AccessDirectory::Directory& whole);

} // namespace Sync
