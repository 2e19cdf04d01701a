#pragma once

#include <string>
#include <vector>

#include "directory/file/Database.h"

namespace AccessDirectory {

// What this process changes in the rows of access directories, whoever in it does: the module's operations, this
// layer's, also those that are yet to be written. SQLite tells of each row before it changes.

/// Watches every connection that the process opens from here on. To be called once, before the first, and after SQLite
/// was configured; watching costs a change some microseconds a row. Throws `Failure` when SQLite was built without the
/// hook.
void WatchRowChanges();

/// The rows that the calling thread has changed and committed since the last call, each as a JSON object in ASCII:
/// {"table": "users", "before": {...} or null, "after": {...} or null}. Without what users log in with: a row whose
/// credential alone changed has the member "credential_changed". Empty where nobody watches. A file that was replaced
/// as a whole (`CopyInto`) is not seen.
std::vector<std::string> TakeRowChanges();

// For a change that is tried in one file and committed elsewhere: what a connection has changed in the transaction
// under way, which is rolled back then, and that this thread has committed such changes after all.

std::vector<std::string> TakePendingRowChanges(Database& database);
void AddRowChanges(std::vector<std::string> rows);

} // namespace AccessDirectory
