#pragma once

#include <string>
#include <vector>

#include "directory/file/Database.h"

namespace AccessDirectory {

/// Whether the directory holds the user, or the group.
bool UserExists(Database& database, const std::string& user_id);
bool GroupExists(Database& database, const std::string& group_id);

// Both replace a whole set in the caller's transaction, so that nobody ever sees half of it; the module's own
// operations commit row by row. Ids are added once each, in ascending order. Throw `Failure` for an id that does not
// exist.

/// The ids as they are then stored: once each, in ascending order.
std::vector<std::string> Distinct(const std::vector<std::string>& ids);

void ReplaceUserGroups(Database& database, const std::string& user_id, const std::vector<std::string>& groups);
void ReplaceGroupUsers(Database& database, const std::string& group_id, const std::vector<std::string>& users);

// Add or remove one membership in the caller's transaction; false when there was nothing to do. Throw `Failure` for an
// id that does not exist.

bool AddMembership(Database& database, const std::string& group_id, const std::string& user_id);
bool RemoveMembership(Database& database, const std::string& group_id, const std::string& user_id);

} // namespace AccessDirectory
