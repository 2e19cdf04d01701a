#pragma once

#include <string>

#include "sync/data/Records.h"
#include "sync/replica/Replica.h"
#include "sync/store/Client.h"

namespace Sync {

/// How a replica stands to the store that answers now.
struct Standing {
  enum class Course {
    Follow,      ///< the store has the file's state in its history: what came after it can be applied
    Synchronise, ///< the store's directory is the file's, but the way from the one to the other is no longer kept
    Stop         ///< the store is not the one that the file was made from, or lost some of its history
  };
  Course course = Course::Stop;
  std::string reason; ///< why not `Follow`; a sentence
  Current current;    ///< valid unless `Stop`
};

/// Compares the file's row with the store: the directory's id must be the file's, the store's revision must not be
/// behind, and the head as it was at the file's revision must name the change that the file ends with. A cluster that
/// was emptied and started again has the same id, and a restored one reaches every revision once more with other
/// changes: nothing less tells them apart. Throws `StoreError`.
Standing StandingOf(Client& client, const ReplicaRow& row);

} // namespace Sync
