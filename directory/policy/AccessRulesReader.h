#pragma once

#include <string>

#include "directory/policy/AccessRules.h"
#include "directory/Progress.h"

namespace AccessDirectory {

/// The policy of a database, or of a file that "export" wrote: the file's first bytes tell. "-" is an export on
/// standard input. Throws `Failure`, of kind Input for an export that is not as it must be.
AccessRules ReadAccessRules(const std::string& name, Patterns& patterns, Progress& progress);

/// Of an existing database.
AccessRules ReadAccessRules(Database& database, Patterns& patterns);

} // namespace AccessDirectory
