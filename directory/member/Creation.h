#pragma once

#include <string>

#include "directory/credential/Credential.h"
#include "directory/file/Database.h"

namespace AccessDirectory {

// Make an entry in the caller's transaction, as the module's own operations do: same rules, same words, same result
// symbols. For where those cannot be used, since more than one step is made in one. Throw `Failure`, of kind Input for
// what is wrong, and of kind Refused, with the symbol RESULT_FILEEXISTS, for what is there already.

void CreateUser(Database& database, const std::string& user_id, const Credential& credential,
                const std::string& create_user);
void CreateGroup(Database& database, const std::string& group_id, const std::string& group_name);

/// Neither checks anything: the module does not.
void CreateFilter(Database& database, const std::string& method, const std::string& group_id, const std::string& filter,
                  const std::string& action);
void DeleteFilter(Database& database, const std::string& method, const std::string& group_id, const std::string& filter,
                  const std::string& action);

} // namespace AccessDirectory
