// /access/users: users, their groups and their credentials.

#include "LocalAccessManager.h"
#include "directory/Module.h"
#include "directory/Progress.h"
#include "directory/credential/Credential.h"
#include "directory/member/Creation.h"
#include "directory/member/Deletion.h"
#include "directory/member/MemberListing.h"
#include "directory/member/Membership.h"
#include "host/administration/Change.h"
#include "host/administration/operation/Credentials.h"
#include "host/administration/operation/ModuleListing.h"
#include "host/administration/operation/Operations.h"

namespace Host {

using AccessDirectory::Credential;
using AccessDirectory::Database;
using AccessDirectory::Json;
using AccessDirectory::JsonText;
using AccessDirectory::Quoted;

namespace {

namespace Keys = LocalAccessManager::Strings;

/// One whom the module would take, but who could never log in, or whose id no header field carries.
void RequireSoundId(const std::string& user_id, const Credential& credential) {
  const std::string fault =
      user_id.empty() ? std::string() : AccessDirectory::UserIdFault(user_id, credential.password.has_value());
  if (!fault.empty()) {
    Refuse(400, "the user id " + Quoted(user_id) + " " + fault);
  }
}

void RequireGroups(Database& database, const std::vector<std::string>& groups) {
  for (const std::string& group : groups) {
    if (!AccessDirectory::GroupExists(database, group)) {
      Refuse(400, "there is no group " + Quoted(group));
    }
  }
}

/// As the module's own operation, which knows nothing of groups.
void CreateThroughModule(Call& call, const std::string& user_id, const Credential& credential) {
  AccessDirectory::Module module = AccessDirectory::Module::OfProcess(call.File());
  Perenna::PListDict request;
  request.SetValue(Keys::user_id, user_id);
  request.SetValue(Keys::create_user, call.caller);
  credential.AddTo(request);
  const auto created =
      module.Apply([&request](LocalAccessManager::UserManager& manager) { return manager.CreateUser(request); });
  if (created == Tarn::RESULT_FILEEXISTS) {
    Refuse(409, "there is a user " + Quoted(user_id) + " already", created.symbol);
  }
}

/// With groups it has to be one step, and with a certificate, which nobody else may have.
void CreateInOneStep(Call& call, const std::string& user_id, const Credential& credential,
                     const std::vector<std::string>& groups) {
  Change change(call);
  Database& database = change.TheDatabase();
  if (AccessDirectory::UserExists(database, user_id)) {
    Refuse(409, "there is a user " + Quoted(user_id) + " already", Tarn::RESULT_FILEEXISTS.symbol);
  }
  RequireOwnThumbprint(database, credential, user_id);
  RequireGroups(database, groups);
  AccessDirectory::CreateUser(database, user_id, credential, call.caller);
  AccessDirectory::ReplaceUserGroups(database, user_id, groups);
  change.Commit();
}

Json UserRow(const Perenna::PListDict& row) {
  return {{"user_id", ColumnJson(row, Keys::user_id)},
          {"auth_method", ColumnJson(row, Keys::auth_method)},
          {"create_date", ColumnJson(row, Keys::create_date)},
          {"create_user", ColumnJson(row, Keys::create_user)},
          {"groups", ListJson(row, Keys::groups)}};
}

} // namespace

Reply ListUsers(Call& call) {
  const Paging paging = PagingOf(call);
  if (call.query.count("group") == 0 && call.query.count("search") == 0) {
    return {200, ListThroughModule(call, &LocalAccessManager::UserManager::GetUsers, paging, UserRow)};
  }
  return {200, ListSelected(call, AccessDirectory::Users, paging, call.Query("group"))};
}

Reply CreateUser(Call& call) {
  const std::string user_id = *call.Text("user_id");
  const Credential credential = CredentialOf(call);
  RequireSoundId(user_id, credential);
  const bool has_groups = call.body.contains("groups") && !call.body["groups"].empty();
  const bool is_one_step = has_groups || !credential.password || !call.context.writer.ModuleMayWrite();
  call.done = {{"operation", "create user"}, {"user_id", JsonText(user_id)}};
  if (is_one_step) {
    std::vector<std::string> groups;
    if (has_groups) {
      groups = call.body["groups"].get<std::vector<std::string>>();
      call.done["groups"] = call.body["groups"];
    }
    CreateInOneStep(call, user_id, credential, groups);
  } else {
    CreateThroughModule(call, user_id, credential);
  }
  Database database(call.File(), Database::Access::Read);
  Entity entity = RequireUser(call, database, user_id);
  return CreatedReply(call, "/access/users", user_id, std::move(entity));
}

Reply GetUser(Call& call) {
  Database database(call.File(), Database::Access::Read);
  const AccessDirectory::Snapshot snapshot(database);
  return EntityReply(RequireUser(call, database, call.path["user_id"]));
}

Reply DeleteUser(Call& call) {
  const std::string& user_id = call.path["user_id"];
  call.done = {{"operation", "delete user"}, {"user_id", JsonText(user_id)}};
  Change change(call);
  change.RequireMatch(RequireUser(call, change.TheDatabase(), user_id).etag);
  AccessDirectory::DeleteUsers(change.TheDatabase(), {user_id});
  change.Commit();
  return {204};
}

Reply PutUserGroups(Call& call) {
  const std::string& user_id = call.path["user_id"];
  const auto groups = call.body.get<std::vector<std::string>>();
  call.done = {{"operation", "set groups of user"}, {"user_id", JsonText(user_id)}, {"groups", call.body}};
  Change change(call);
  change.RequireMatch(RequireUser(call, change.TheDatabase(), user_id).etag);
  RequireGroups(change.TheDatabase(), groups);
  AccessDirectory::ReplaceUserGroups(change.TheDatabase(), user_id, groups);
  const Entity entity = RequireUser(call, change.TheDatabase(), user_id);
  change.Commit();
  return {200, entity.json["groups"], {}, {{"ETag", entity.etag}}};
}

Reply PutUserCredential(Call& call) {
  const std::string& user_id = call.path["user_id"];
  const Credential credential = CredentialOf(call);
  call.done = {
      {"operation", "set credential of user"}, {"user_id", JsonText(user_id)}, {"auth_method", credential.Method()}};
  StoreCredential(call, user_id, credential);
  return {204};
}

} // namespace Host
