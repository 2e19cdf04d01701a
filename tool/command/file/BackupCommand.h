#pragma once

#include <string>

#include "directory/file/Database.h"
#include "tool/DirectoryNames.h"

namespace Tool {

/// Makes a backup beside the database, named after the file, the moment and `what` is about to be done; returns its
/// name. Throws `Failure`.
std::string BackUpBefore(const std::string& what, Database& database);

} // namespace Tool
