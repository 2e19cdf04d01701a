// /access/groups: groups and their users.

#include "LocalAccessManager.h"
#include "directory/Module.h"
#include "directory/member/Creation.h"
#include "directory/member/Deletion.h"
#include "directory/member/Membership.h"
#include "host/administration/Change.h"
#include "host/administration/operation/ModuleListing.h"
#include "host/administration/operation/Operations.h"

namespace Host {

using AccessDirectory::Database;
using AccessDirectory::Json;
using AccessDirectory::JsonText;
using AccessDirectory::Quoted;

namespace {

namespace Keys = LocalAccessManager::Strings;

void RequireUsers(Database& database, const std::vector<std::string>& users) {
  for (const std::string& user : users) {
    if (!AccessDirectory::UserExists(database, user)) {
      Refuse(400, "there is no user " + Quoted(user));
    }
  }
}

/// As the module's own operation, which knows nothing of users.
void CreateThroughModule(Call& call, const std::string& group_id, const std::string& name) {
  AccessDirectory::Module module = AccessDirectory::Module::OfProcess(call.File());
  Perenna::PListDict request;
  request.SetValue(Keys::group_id, group_id);
  request.SetValue(Keys::group_name, name);
  const auto created =
      module.Apply([&request](LocalAccessManager::UserManager& manager) { return manager.CreateGroup(request); });
  if (created == Tarn::RESULT_FILEEXISTS) {
    Refuse(409, "there is a group " + Quoted(group_id) + " already", created.symbol);
  }
}

/// With users it has to be one step.
void CreateWithUsers(Call& call, const std::string& group_id, const std::string& name,
                     const std::vector<std::string>& users) {
  Change change(call);
  Database& database = change.TheDatabase();
  if (AccessDirectory::GroupExists(database, group_id)) {
    Refuse(409, "there is a group " + Quoted(group_id) + " already", Tarn::RESULT_FILEEXISTS.symbol);
  }
  RequireUsers(database, users);
  AccessDirectory::CreateGroup(database, group_id, name);
  AccessDirectory::ReplaceGroupUsers(database, group_id, users);
  change.Commit();
}

Json GroupRow(const Perenna::PListDict& row) {
  return {{"group_id", ColumnJson(row, Keys::group_id)},
          {"group_name", ColumnJson(row, Keys::group_name)},
          {"users", ListJson(row, Keys::users)}};
}

} // namespace

Reply ListGroups(Call& call) {
  const Paging paging = PagingOf(call);
  if (call.query.count("search") == 0) {
    return {200, ListThroughModule(call, &LocalAccessManager::UserManager::GetGroups, paging, GroupRow)};
  }
  return {200, ListSelected(call, AccessDirectory::Groups, paging, {})};
}

Reply CreateGroup(Call& call) {
  const std::string group_id = *call.Text("group_id");
  const std::string name = call.Text("group_name").value_or(group_id);
  call.done = {{"operation", "create group"}, {"group_id", JsonText(group_id)}};
  if (call.body.contains("users") && !call.body["users"].empty()) {
    call.done["users"] = call.body["users"];
    CreateWithUsers(call, group_id, name, call.body["users"].get<std::vector<std::string>>());
  } else if (!call.context.writer.ModuleMayWrite()) {
    CreateWithUsers(call, group_id, name, {});
  } else {
    CreateThroughModule(call, group_id, name);
  }
  Database database(call.File(), Database::Access::Read);
  Entity entity = RequireGroup(call, database, group_id);
  return CreatedReply(call, "/access/groups", group_id, std::move(entity));
}

Reply GetGroup(Call& call) {
  Database database(call.File(), Database::Access::Read);
  const AccessDirectory::Snapshot snapshot(database);
  return EntityReply(RequireGroup(call, database, call.path["group_id"]));
}

Reply DeleteGroup(Call& call) {
  const std::string& group_id = call.path["group_id"];
  call.done = {{"operation", "delete group"}, {"group_id", JsonText(group_id)}};
  Change change(call);
  change.RequireMatch(RequireGroup(call, change.TheDatabase(), group_id).etag);
  AccessDirectory::DeleteGroups(change.TheDatabase(), {group_id});
  change.Commit();
  return {204};
}

Reply PutGroupUsers(Call& call) {
  const std::string& group_id = call.path["group_id"];
  const auto users = call.body.get<std::vector<std::string>>();
  call.done = {{"operation", "set users of group"}, {"group_id", JsonText(group_id)}, {"users", call.body}};
  Change change(call);
  change.RequireMatch(RequireGroup(call, change.TheDatabase(), group_id).etag);
  RequireUsers(change.TheDatabase(), users);
  AccessDirectory::ReplaceGroupUsers(change.TheDatabase(), group_id, users);
  const Entity entity = RequireGroup(call, change.TheDatabase(), group_id);
  change.Commit();
  return {200, entity.json["users"], {}, {{"ETag", entity.etag}}};
}

Reply PutMembership(Call& call) {
  const std::string& group_id = call.path["group_id"];
  const std::string& user_id = call.path["user_id"];
  call.done = {{"operation", "add user to group"}, {"group_id", JsonText(group_id)}, {"user_id", JsonText(user_id)}};
  Change change(call);
  Database& database = change.TheDatabase();
  change.RequireMatch(RequireGroup(call, database, group_id).etag);
  RequireUser(call, database, user_id);
  if (AccessDirectory::AddMembership(database, group_id, user_id)) {
    change.Commit();
  }
  return {204};
}

Reply DeleteMembership(Call& call) {
  const std::string& group_id = call.path["group_id"];
  const std::string& user_id = call.path["user_id"];
  call.done = {
      {"operation", "take user out of group"}, {"group_id", JsonText(group_id)}, {"user_id", JsonText(user_id)}};
  Change change(call);
  Database& database = change.TheDatabase();
  change.RequireMatch(RequireGroup(call, database, group_id).etag);
  database.Run("DELETE FROM groupusers WHERE group_id = ? AND user_id = ?", {group_id, user_id});
  change.Commit();
  return {204};
}

} // namespace Host
