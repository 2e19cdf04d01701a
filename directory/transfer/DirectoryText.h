#pragma once

#include <functional>
#include <string>
#include <vector>

#include "directory/Directory.h"
#include "directory/Progress.h"
#include "directory/transfer/FileFindings.h"

namespace AccessDirectory {

enum class StoredCredentials { Written, LeftOut };

/// Writes the whole directory as a directory file, an entry a line, as of one moment, piece by piece. Throws `Failure`,
/// also for a stored value that is no text. Returns how many entries there were.
SectionCounts WriteDirectory(Database& database, StoredCredentials credentials,
                             const std::function<void(const std::string& text)>& write);

/// The same in the caller's snapshot or transaction.
SectionCounts WriteRows(Database& database, StoredCredentials credentials,
                        const std::function<void(const std::string& text)>& write);

/// All of it in memory, in the caller's snapshot or transaction; values that are no text as their bytes.
Directory ReadStoredTexts(Database& database);

/// Puts `directory` in the place of the stored one, in the caller's transaction. Throws `Failure`.
void ReplaceDirectory(Database& database, const Directory& directory, Progress& progress);

/// Gives the users in rows `without` of `directory`, which came without a credential, the one that `stored` has for
/// them. A new user, or one of another method, is an error.
void KeepCredentials(Directory& directory, const std::vector<std::size_t>& without, const Directory& stored,
                     FileFindings& errors);

} // namespace AccessDirectory
