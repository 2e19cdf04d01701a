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
                             const std::function<void(const std::string& text)>& write,
                             RowOrder order = RowOrder::Stored);

/// The same in the caller's snapshot or transaction.
SectionCounts WriteRows(Database& database, StoredCredentials credentials,
                        const std::function<void(const std::string& text)>& write, RowOrder order = RowOrder::Stored);

/// All of it in memory, in the caller's snapshot or transaction; values that are no text as their bytes.
Directory ReadStoredTexts(Database& database);

/// Which sections of a directory are taken from a file, and how.
struct ImportScope {
  std::array<bool, SectionCount> sections = {true, true, true, true}; ///< the others stay as they are stored
  bool merge = false; ///< what the file does not have stays too: entries are added, and changed where their keys agree

  bool IsWhole() const noexcept;
};

/// The directory as it is after an import of `given` in that scope over `stored`. Its memberships and filters are those
/// of `given` behind the stored ones when merged, each once more only where it is not there yet.
Directory Combined(const Directory& stored, Directory given, const ImportScope& scope);

/// Puts `directory` in the place of the stored one, in the caller's transaction. Throws `Failure`.
void ReplaceDirectory(Database& database, const Directory& directory, Progress& progress);

/// Gives the users in rows `without` of `directory`, which came without a credential, the one that `stored` has for
/// them. A new user, or one of another method, is an error.
void KeepCredentials(Directory& directory, const std::vector<std::size_t>& without, const Directory& stored,
                     FileFindings& errors);

} // namespace AccessDirectory
