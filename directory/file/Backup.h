#pragma once

#include <string>

#include "directory/Directory.h"
#include "directory/file/Database.h"
#include "directory/Progress.h"

namespace AccessDirectory {

// A database file as it is: rows, indexes, statistics and journal mode. Other programs, such as a server, may use both
// files meanwhile. All throw `Failure`.

/// Throws unless SQLite finds every page, row and index of the file in order.
void RequireIntegrity(Database& database, Progress& progress);

/// Makes `file`, which must not exist yet, a copy of the database as of one moment, for its owner alone.
void CopyTo(Database& database, const std::string& file, Progress& progress);

/// Puts a copy of `backup` in the place of what the existing database `file` holds, in one transaction, so that its
/// users see the old directory or the new one. A file that holds something else is refused; a damaged one is mended.
void CopyInto(Database& backup, const std::string& file, Progress& progress);

/// How many entries of each kind are stored.
SectionCounts StoredCounts(Database& database);

} // namespace AccessDirectory
