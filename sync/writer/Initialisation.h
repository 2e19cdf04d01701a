#pragma once

#include <string>

#include "directory/Directory.h"
#include "directory/Progress.h"
#include "sync/store/Client.h"

namespace Sync {

/// What `PutIntoStore` did.
struct PutDirectory {
  AccessDirectory::SectionCounts counts{}; ///< entries that the store holds now
  std::size_t merged = 0;                  ///< rows that repeated another
  std::string directory;                   ///< the UUID it got
};

/// Puts the directory of `file`, a database that is no replica, into a store that holds none, and makes the file its
/// first replica, tuned. The file stays locked meanwhile, so that nothing changes in between. Throws
/// `AccessDirectory::Failure`: Refused where there is one already, or a value is no text.
PutDirectory PutIntoStore(Client& client, const std::string& file, AccessDirectory::Progress& progress);

} // namespace Sync
