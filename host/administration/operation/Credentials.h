#pragma once

#include <optional>
#include <string>

#include "directory/credential/Credential.h"
#include "directory/file/Database.h"
#include "host/administration/Call.h"

namespace Host {

/// The one credential that the body names: a password, a certificate or a thumbprint. Refuses with 400.
AccessDirectory::Credential CredentialOf(const Call& call);

/// Refuses with 409 a certificate by which another user is known: his rights would be used, or taken away. Belongs into
/// the transaction that stores it.
void RequireOwnThumbprint(AccessDirectory::Database& database, const AccessDirectory::Credential& credential,
                          const std::string& user_id);

/// Replaces a user's credential in one step; honours `If-Match`. With `proven`, the stored value that the caller has
/// shown to know, only as long as that is stored: who knows an old password must not undo its being reset.
void StoreCredential(Call& call, const std::string& user_id, const AccessDirectory::Credential& credential,
                     const std::optional<std::string>& proven = std::nullopt);

} // namespace Host
