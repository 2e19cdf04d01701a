#include "tool/command/Commands.h"

#include <iostream>
#include <memory>

#include "directory/member/Deletion.h"
#include "directory/file/Database.h"
#include "directory/member/Membership.h"
#include "directory/credential/Credential.h"
#include "tool/cli/option/LockoutOptions.h"
#include "tool/cli/option/Validators.h"
#include "tool/command/entry/Listing.h"
#include "tool/DirectoryNames.h"
#include "tool/terminal/Confirmation.h"
#include "tool/terminal/Table.h"

namespace Tool {

namespace {

namespace Keys = LocalAccessManager::Strings;

struct UserOptions {
  std::string id;
  std::vector<std::string> ids;
  std::vector<std::string> groups;
  PageOptions page;
  ListOptions list;
  Selection selection;
  LockoutOptions lockout;
  bool show_credential = false;
  bool none = false;
};

using Options = std::shared_ptr<UserOptions>;

Json UserJson(const std::string& id, const std::string& method, const std::string& date, const std::string& creator,
              const std::vector<std::string>& groups) {
  return {{"user_id", JsonText(id)},
          {"auth_method", JsonText(method)},
          {"create_date", JsonText(date)},
          {"create_user", JsonText(creator)},
          {"groups", JsonTexts(groups)}};
}

ExitStatus DeleteUsers(const Context& context, const UserOptions& options) {
  if (const std::size_t count = Distinct(options.ids).size(); count > 1) {
    ConfirmRemoval(context, "Delete " + Count(count, "user") + "?");
  }
  Json warnings =
      options.lockout.Apply(context, [&](Database& database) { AccessDirectory::DeleteUsers(database, options.ids); });
  Json deleted = Json::array();
  std::string sentences;
  for (const std::string& id : Distinct(options.ids)) {
    deleted.push_back({{"user_id", JsonText(id)}});
    sentences += (sentences.empty() ? "" : "\n") + ("Deleted user " + Quoted(id) + ".");
  }
  context.Report(sentences, {{"deleted", std::move(deleted)}, {"warnings", std::move(warnings)}});
  return ExitStatus::Done;
}

ExitStatus ListUsers(const Context& context, const UserOptions& options) {
  const auto text = [](const MemberListing& listing, std::size_t row, std::size_t column) {
    return std::string(listing.rows.At(row, column));
  };
  const auto json = [text](const MemberListing& listing, std::size_t row) {
    return UserJson(text(listing, row, UserColumn::Id), text(listing, row, UserColumn::Method),
                    text(listing, row, UserColumn::Date), text(listing, row, UserColumn::Creator),
                    listing.members[row]);
  };
  const auto cells = [text](const MemberListing& listing, std::size_t row) -> std::vector<Cell> {
    return {Shown(text(listing, row, UserColumn::Id)), Shown(text(listing, row, UserColumn::Method)),
            Shown(text(listing, row, UserColumn::Date)), Shown(text(listing, row, UserColumn::Creator)),
            Joined(listing.members[row])};
  };
  return PrintMembers(
      context, options.list,
      {Users, options.page, options.selection, {"USER", "METHOD", "CREATED", "CREATED BY", "GROUPS"}, json, cells});
}

ExitStatus ShowUser(const Context& context, const UserOptions& options) {
  Database database(context.DatabaseFile(), Database::Access::Read);
  const Snapshot snapshot(database);
  Json json;
  Statement(database, "SELECT user_id, auth_method, auth_value, create_date, create_user FROM users WHERE user_id = ?")
      .ForEach({options.id}, [&](const Perenna::PListDict& row) {
        json = UserJson(Field(row, Keys::user_id), Field(row, Keys::auth_method), Field(row, Keys::create_date),
                        Field(row, Keys::create_user),
                        database.Texts("SELECT DISTINCT group_id FROM groupusers WHERE user_id = ? ORDER BY group_id",
                                       {options.id}));
        const bool certificate =
            EnabledMethod(Field(row, Keys::auth_method)) == std::string_view(Keys::tls_client_certificate);
        const std::string thumbprint = certificate ? ThumbprintDigits(Field(row, Keys::auth_value)) : std::string();
        if (!thumbprint.empty()) { // no secret: it tells a certificate, and certificates are public
          json["thumbprint"] = thumbprint;
        }
        if (options.show_credential) {
          json["auth_value"] = JsonText(Field(row, Keys::auth_value));
        }
        if (!context.WantsJson()) {
          std::cout << "User        " << Shown(Field(row, Keys::user_id)) << '\n'
                    << "Method      " << Shown(Field(row, Keys::auth_method)) << '\n';
          if (!thumbprint.empty()) {
            std::cout << "Thumbprint  " << thumbprint << '\n';
          }
          if (options.show_credential) {
            std::cout << "Credential  " << Shown(Field(row, Keys::auth_value)) << '\n';
          }
          std::cout << "Created     " << Shown(Field(row, Keys::create_date)) << '\n'
                    << "Created by  " << Shown(Field(row, Keys::create_user)) << '\n';
        }
      });
  if (json.is_null()) {
    throw Failure(Failure::Kind::Refused, "there is no user " + Quoted(options.id));
  }
  if (context.WantsJson()) {
    PrintJson(json);
    return ExitStatus::Done;
  }
  std::cout << "Groups      "
            << Joined(database.Texts("SELECT DISTINCT group_id FROM groupusers WHERE user_id = ? ORDER BY group_id",
                                     {options.id}))
            << '\n';
  return ExitStatus::Done;
}

ExitStatus SetUserGroups(const Context& context, const UserOptions& options) {
  RequireSet(options.groups, options.none, "GROUP");
  Json warnings = options.lockout.Apply(
      context, [&](Database& database) { ReplaceUserGroups(database, options.id, options.groups); });
  const std::vector<std::string> groups = Distinct(options.groups);
  context.Report("User " + Quoted(options.id) + " is now in: " + Joined(groups) + ".",
                 {{"user_id", JsonText(options.id)}, {"groups", JsonTexts(groups)}, {"warnings", std::move(warnings)}});
  return ExitStatus::Done;
}

} // namespace

void AddUserCommands(CLI::App& app, Context& context) {
  CLI::App& group = AddCommandGroup(app, "user", "Add, delete, list and change users");
  const auto make = [&](const std::string& name, const std::string& description, const std::string& example,
                        ExitStatus (*run)(const Context&, const UserOptions&)) -> std::pair<CLI::App&, Options> {
    CLI::App& command = AddCommand(group, name, description, example);
    auto options = std::make_shared<UserOptions>();
    context.OnRun(command, [&context, options, run] { return run(context, *options); });
    return {command, options};
  };

  AddUserAddCommand(group, context);

  const auto [remove, remove_options] =
      make("delete", "Delete users with their memberships\nAll of them or, when one does not exist, none.",
           "perenna-access user delete alice bob", DeleteUsers);
  remove.add_option("USER", remove_options->ids, "The ids of the users")->required();
  remove_options->lockout.AddTo(remove);

  const auto [list, list_options] =
      make("list", "List users with their groups", "perenna-access user list --limit 20", ListUsers);
  list.add_option("--search", list_options->selection.search, "Only users whose id holds this, in any letter case")
      ->type_name("TEXT");
  list.add_option("--group", list_options->selection.member_of, "Only the members of this group")->type_name("GROUP");
  AddPageOptions(list, list_options->page);
  AddListOptions(list, list_options->list);

  const auto [show, show_options] = make("show", "Show one user", "perenna-access user show alice", ShowUser);
  show.add_option("USER", show_options->id, "The user's id")->required();
  show.add_flag("--show-credential", show_options->show_credential, "Show the stored credential as well");
  AddUserAccessCommand(group, context);

  const auto [groups, groups_options] = make("set-groups", "Replace the groups that a user is in",
                                             "perenna-access user set-groups alice editors readers", SetUserGroups);
  groups.add_option("USER", groups_options->id, "The user's id")->required();
  groups.add_option("GROUP", groups_options->groups, "The ids of the groups");
  groups.add_flag("--none", groups_options->none, "Leave the user in no group");
  groups_options->lockout.AddTo(groups);
  AddUserMemberCommands(group, context);
  AddCredentialCommands(group, context);
}

} // namespace Tool
