#pragma once

#include <string>

#include "directory/credential/Credential.h"
#include "directory/file/Database.h"
#include "tool/DirectoryNames.h"

namespace Tool {

/// The module finds the first user of a thumbprint: another's rights would be used, or taken away, unnoticed. Throws
/// `Failure` when the certificate is another's.
void RequireOwnThumbprint(Database& database, const Credential& credential, const std::string& user_id);

} // namespace Tool
