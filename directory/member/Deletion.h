#pragma once

#include <string>
#include <vector>

#include "directory/file/Database.h"

namespace AccessDirectory {

// Delete users or groups with their memberships, in the caller's transaction: all of them or, when one does not exist,
// none. The filters of a group stay, as with the module's own operation. An id may be given twice. Throw a `Failure`
// that names every id which does not exist.

void DeleteUsers(Database& database, const std::vector<std::string>& user_ids);
void DeleteGroups(Database& database, const std::vector<std::string>& group_ids);

/// Deletes all filters of the group, whether it exists or not. Returns how many there were.
std::size_t DeleteFiltersOf(Database& database, const std::string& group_id);

} // namespace AccessDirectory
