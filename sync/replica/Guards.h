#pragma once

#include "directory/file/Database.h"

namespace Sync {

// The table `perenna_replica` and the triggers that keep other programs from changing a replica. All run in the
// caller's transaction and throw `AccessDirectory::Failure`.

/// Makes the table, with one row of a replica that holds nothing yet.
void MakeReplicaTable(AccessDirectory::Database& database);

/// Puts back what is missing of the triggers, or was changed in them. Whether something was.
bool RestoreGuards(AccessDirectory::Database& database);

/// Whether the schema is as it was when the triggers were last looked at: nobody can have dropped one since.
bool IsGuardedStill(AccessDirectory::Database& database);

} // namespace Sync
