#include "directory/member/Membership.h"

#include <set>

#include "directory/Failure.h"
#include "directory/text/Text.h"

namespace AccessDirectory {

namespace {

void RequireUser(Database& database, const std::string& user_id) {
  if (!UserExists(database, user_id)) {
    throw Failure(Failure::Kind::Refused, "there is no user " + Quoted(user_id));
  }
}

void RequireGroup(Database& database, const std::string& group_id) {
  if (!GroupExists(database, group_id)) {
    throw Failure(Failure::Kind::Refused, "there is no group " + Quoted(group_id));
  }
}

} // namespace

bool UserExists(Database& database, const std::string& user_id) {
  return database.Number("SELECT count(*) FROM users WHERE user_id = ?", {user_id}) > 0;
}

bool GroupExists(Database& database, const std::string& group_id) {
  return database.Number("SELECT count(*) FROM groups WHERE group_id = ?", {group_id}) > 0;
}

std::vector<std::string> Distinct(const std::vector<std::string>& ids) {
  const std::set<std::string> distinct(ids.begin(), ids.end());
  return {distinct.begin(), distinct.end()};
}

bool AddMembership(Database& database, const std::string& group_id, const std::string& user_id) {
  RequireGroup(database, group_id);
  RequireUser(database, user_id);
  return database.Run("INSERT INTO groupusers(group_id, user_id) SELECT ?1, ?2 WHERE NOT EXISTS (SELECT 1 FROM "
                      "groupusers WHERE group_id = ?1 AND user_id = ?2)",
                      {group_id, user_id}) > 0;
}

bool RemoveMembership(Database& database, const std::string& group_id, const std::string& user_id) {
  RequireGroup(database, group_id);
  RequireUser(database, user_id);
  return database.Run("DELETE FROM groupusers WHERE group_id = ? AND user_id = ?", {group_id, user_id}) > 0;
}

void ReplaceUserGroups(Database& database, const std::string& user_id, const std::vector<std::string>& groups) {
  RequireUser(database, user_id);
  database.Run("DELETE FROM groupusers WHERE user_id = ?", {user_id});
  for (const std::string& group_id : Distinct(groups)) {
    RequireGroup(database, group_id);
    database.Run("INSERT INTO groupusers(group_id, user_id) VALUES(?, ?)", {group_id, user_id});
  }
}

void ReplaceGroupUsers(Database& database, const std::string& group_id, const std::vector<std::string>& users) {
  RequireGroup(database, group_id);
  database.Run("DELETE FROM groupusers WHERE group_id = ?", {group_id});
  for (const std::string& user_id : Distinct(users)) {
    RequireUser(database, user_id);
    database.Run("INSERT INTO groupusers(group_id, user_id) VALUES(?, ?)", {group_id, user_id});
  }
}

} // namespace AccessDirectory
