#pragma once

#include <string>

#include "directory/file/Database.h"

namespace AccessDirectory {

/// How many users may administer: members of the group `group_id` who can log in, with an authentication method that
/// the module knows and a stored credential that something can fit.
std::size_t CountAdministrators(Database& database, const std::string& group_id);

/// Guards against a change after which nobody may administer any more. Lives inside the transaction of the change, so
/// that two changes at once cannot both count on the other's administrator.
class AdministratorsGuard {
public:
  /// Counts them before the change.
  AdministratorsGuard(Database& database, std::string group_id);

  /// Whether there were some and the change has left none.
  bool LostAll() const;

private:
  Database& m_Database;
  std::string m_Group;
  bool m_HadSome;
};

} // namespace AccessDirectory
