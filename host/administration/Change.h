#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "directory/file/Database.h"
#include "directory/member/Administrators.h"
#include "host/administration/Call.h"

namespace Host {

/// A user or a group as it is shown, and the tag (RFC 9110, 8.8.3) of its state, credentials included.
struct Entity { // NOLINT(bugprone-exception-escape): moving JSON allocates nothing
  AccessDirectory::Json json;
  std::string etag;
};

/// Both give nothing where there is none. In a change they see what it has done so far.
std::optional<Entity> FindUser(Call& call, AccessDirectory::Database& database, const std::string& user_id);
std::optional<Entity> FindGroup(Call& call, AccessDirectory::Database& database, const std::string& group_id);
/// The same; there is one, or the request is refused with 404.
Entity RequireUser(Call& call, AccessDirectory::Database& database, const std::string& user_id);
Entity RequireGroup(Call& call, AccessDirectory::Database& database, const std::string& group_id);

/// A tag for texts; a key of the process keeps it from telling anything about them.
std::string TagOf(const Call& call, const std::vector<std::string>& texts);

/// What has to be one step, in one transaction of its own connection: nothing of it stays unless `Commit` returns. When
/// another change comes first, `Commit` throws `AccessDirectory::ChangeConflict`, and the request is answered anew.
class Change {
public:
  explicit Change(Call& call);

  AccessDirectory::Database& TheDatabase() { return m_Pending->TheDatabase(); }

  /// Refuses with 412 when the request wants another state than that of `etag`.
  void RequireMatch(const std::string& etag) const;
  /// Refuses with 409 a change that leaves nobody who could administer, unless the query says "force=true".
  void Commit();

private:
  Call& m_Call;
  std::unique_ptr<AccessDirectory::PendingChange> m_Pending;
  AccessDirectory::AdministratorsGuard m_Guard;
};

} // namespace Host
