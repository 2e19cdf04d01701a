#include "directory/member/Administrators.h"

#include <utility>

#include "LocalAccessManager.h"
#include "directory/credential/Credential.h"

namespace AccessDirectory {

std::size_t CountAdministrators(Database& database, const std::string& group_id) {
  std::size_t count = 0;
  Statement(database, "SELECT auth_method, auth_value FROM users "
                      "WHERE typeof(auth_method) = 'text' AND typeof(auth_value) = 'text' "
                      "AND user_id IN (SELECT user_id FROM groupusers WHERE group_id = ?)")
      .ForEach({group_id}, [&count](const Perenna::PListDict& row) {
        count += IsUsable(Field(row, LocalAccessManager::Strings::auth_method),
                          Field(row, LocalAccessManager::Strings::auth_value))
                     ? 1
                     : 0;
      });
  return count;
}

AdministratorsGuard::AdministratorsGuard(Database& database, std::string group_id)
    : m_Database(database), m_Group(std::move(group_id)), m_HadSome(CountAdministrators(database, m_Group) > 0) {}

bool AdministratorsGuard::LostAll() const {
  return m_HadSome && CountAdministrators(m_Database, m_Group) == 0;
}

} // namespace AccessDirectory
