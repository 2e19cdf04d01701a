#include "directory/member/Deletion.h"

#include "directory/Failure.h"
#include "directory/member/Membership.h"
#include "directory/text/Text.h"

namespace AccessDirectory {

namespace {

void Delete(Database& database, const std::string& noun, const std::vector<std::string>& ids,
            const std::string& from_table, const std::string& from_memberships) {
  std::string missing;
  for (const std::string& id : Distinct(ids)) {
    if (database.Run(from_table, {id}) == 0) {
      missing += (missing.empty() ? " " : ", ") + Quoted(id);
    }
    database.Run(from_memberships, {id});
  }
  if (!missing.empty()) {
    throw Failure(Failure::Kind::Refused,
                  "there is no " + noun + missing + (ids.size() > 1 ? "; nothing was deleted" : ""));
  }
}

} // namespace

void DeleteUsers(Database& database, const std::vector<std::string>& user_ids) {
  Delete(database, "user", user_ids, "DELETE FROM users WHERE user_id = ?", "DELETE FROM groupusers WHERE user_id = ?");
}

void DeleteGroups(Database& database, const std::vector<std::string>& group_ids) {
  Delete(database, "group", group_ids, "DELETE FROM groups WHERE group_id = ?",
         "DELETE FROM groupusers WHERE group_id = ?");
}

std::size_t DeleteFiltersOf(Database& database, const std::string& group_id) {
  return static_cast<std::size_t>(database.Run("DELETE FROM filters WHERE group_id = ?", {group_id}));
}

} // namespace AccessDirectory
