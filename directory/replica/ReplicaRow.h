#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "directory/file/Database.h"

namespace AccessDirectory {

/// What a replica file says about itself: which directory's copy it is, and which state of it. Written in the
/// transaction that makes the file so, in the table `perenna_replica`, whose column `writing` opens the tables of the
/// directory to that transaction alone: triggers refuse every other program's changes.
struct ReplicaRow {
  std::string directory;       ///< UUID, for good
  std::string cluster;         ///< id of the store's cluster
  std::int64_t generation = 0; ///< of the store's keys
  std::int64_t revision = 0;   ///< of the store
  std::string head_txn;        ///< UUID of the last change that is in the file
};

/// Reads it; nothing for a file that is no replica. Throws `Failure`.
std::optional<ReplicaRow> ReadReplicaRow(Database& database);

/// The same for a file that is opened for the question.
std::optional<ReplicaRow> ReadReplicaRow(const std::string& file);

} // namespace AccessDirectory
