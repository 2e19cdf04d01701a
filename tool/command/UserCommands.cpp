#include "tool/command/Commands.h"

#include <iostream>
#include <memory>

#include "directory/member/Deletion.h"
#include "directory/file/Database.h"
#include "directory/member/Membership.h"
#include "directory/Module.h"
#include "tool/cli/option/CredentialOptions.h"
#include "tool/cli/option/LockoutOptions.h"
#include "tool/cli/option/Validators.h"
#include "tool/command/Listing.h"
#include "tool/DirectoryNames.h"
#include "tool/terminal/Table.h"

namespace Tool {

namespace {

namespace Keys = LocalAccessManager::Strings;

struct UserOptions {
  std::string id;
  std::vector<std::string> ids;
  std::string creator;
  std::vector<std::string> groups;
  CredentialOptions credential;
  PageOptions page;
  LockoutOptions lockout;
  bool show_credential = false;
  bool unchecked = false;
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

/// The module finds the first user of a thumbprint: another's rights would be used, or taken away, unnoticed.
void RequireOwnThumbprint(Database& database, const Credential& credential, const std::string& user_id) {
  const std::string other = credential.password ? "" : UserOfThumbprint(database, credential.thumbprint);
  if (!other.empty() && other != user_id) {
    throw Failure(Failure::Kind::Refused,
                  "the certificate is that of user " + Quoted(other) + "; --unchecked stores it all the same");
  }
}

ExitStatus AddUser(const Context& context, const UserOptions& options) {
  const std::string file = context.DatabaseFile();
  Module module(file);
  if (module.UserExists(options.id)) { // before a password is asked for
    throw Failure(Failure::Kind::Refused, "the user " + Quoted(options.id) + " exists already");
  }
  std::string creator = options.creator;
  if (creator.empty()) {
    Database database(file, Database::Access::Read);
    const auto first = database.Texts("SELECT user_id FROM users ORDER BY rowid LIMIT 1");
    if (first.empty()) {
      throw Failure(Failure::Kind::Refused, "the directory has no user who could create one; make a new one with "
                                            "\"init\", or import one");
    }
    creator = first.front();
  } else if (!module.UserExists(creator)) {
    throw Failure(Failure::Kind::Input, "--created-by: there is no user " + Quoted(creator));
  }
  if (const std::string fault = options.unchecked ? "" : UserIdFault(options.id, !options.credential.IsCertificate());
      !fault.empty()) {
    throw Failure(Failure::Kind::Input,
                  "USER: " + Quoted(options.id) + ' ' + fault + "; --unchecked adds it all the same");
  }
  for (const std::string& group : options.groups) {
    if (!module.GroupExists(group)) {
      throw Failure(Failure::Kind::Input, "--group: there is no group " + Quoted(group));
    }
  }
  Perenna::PListDict request;
  request.SetValue(Keys::user_id, options.id);
  request.SetValue(Keys::create_user, creator);
  const Credential credential = options.credential.Read(options.id);
  if (!options.unchecked) {
    Database database(file, Database::Access::Read);
    RequireOwnThumbprint(database, credential, options.id);
  }
  credential.AddTo(request);
  const auto created =
      module.Apply([&request](LocalAccessManager::UserManager& manager) { return manager.CreateUser(request); });
  if (created == Tarn::RESULT_FILEEXISTS) {
    throw Failure(Failure::Kind::Refused, "the user " + Quoted(options.id) + " exists already");
  }
  if (!options.groups.empty()) {
    try {
      Database database(file, Database::Access::Write);
      Transaction transaction(database);
      ReplaceUserGroups(database, options.id, options.groups);
      transaction.Commit();
    } catch (const Failure& failure) {
      throw Failure(failure.What(),
                    "the user " + Quoted(options.id) + " was added, but to no group: " + failure.what());
    }
  }
  context.Report("Added user " + Quoted(options.id) + ".",
                 {{"added", {{"user_id", JsonText(options.id)}, {"auth_method", credential.Method()}}}});
  return ExitStatus::Done;
}

ExitStatus DeleteUsers(const Context& context, const UserOptions& options) {
  Database database(context.DatabaseFile(), Database::Access::Write);
  Json warnings =
      options.lockout.Apply(context, database, [&] { AccessDirectory::DeleteUsers(database, options.ids); });
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
  return PrintMembers(context, options.page,
                      {Users, {"USER", "METHOD", "CREATED", "CREATED BY", "GROUPS"}, json, cells});
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
        if (options.show_credential) {
          json["auth_value"] = JsonText(Field(row, Keys::auth_value));
        }
        if (!context.WantsJson()) {
          std::cout << "User        " << Shown(Field(row, Keys::user_id)) << '\n'
                    << "Method      " << Shown(Field(row, Keys::auth_method)) << '\n';
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
  Database database(context.DatabaseFile(), Database::Access::Write);
  Json warnings =
      options.lockout.Apply(context, database, [&] { ReplaceUserGroups(database, options.id, options.groups); });
  const std::vector<std::string> groups = Distinct(options.groups);
  context.Report("User " + Quoted(options.id) + " is now in: " + Joined(groups) + ".",
                 {{"user_id", JsonText(options.id)}, {"groups", JsonTexts(groups)}, {"warnings", std::move(warnings)}});
  return ExitStatus::Done;
}

ExitStatus SetCredential(const Context& context, const UserOptions& options) {
  Database database(context.DatabaseFile(), Database::Access::Write);
  if (!UserExists(database, options.id)) {
    throw Failure(Failure::Kind::Refused, "there is no user " + Quoted(options.id));
  }
  const Credential credential = options.credential.Read(options.id);
  Transaction transaction(database);
  if (!options.unchecked) {
    RequireOwnThumbprint(database, credential, options.id);
  }
  if (database.Run("UPDATE users SET auth_method = ?, auth_value = ? WHERE user_id = ?",
                   {credential.Method(), credential.StoredValue(), options.id}) == 0) {
    throw Failure(Failure::Kind::Refused, "there is no user " + Quoted(options.id) + " any more");
  }
  transaction.Commit();
  context.Report("Changed the credential of user " + Quoted(options.id) + " (" + credential.Method() + ").",
                 {{"changed", {{"user_id", JsonText(options.id)}, {"auth_method", credential.Method()}}}});
  return ExitStatus::Done;
}

ExitStatus SetCertificate(const Context& context, const UserOptions& options) {
  if (!options.credential.IsCertificate()) {
    throw Failure(Failure::Kind::Input, "which certificate? Give --certificate FILE or --thumbprint TEXT");
  }
  return SetCredential(context, options);
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

  const auto [add, add_options] =
      make("add", "Add a user\nAsks for the password at the terminal unless a credential is named.",
           "perenna-access user add alice --group editors", AddUser);
  add.add_option("USER", add_options->id, "The new user's id")->required()->type_name("NEW")->check(NotEmpty());
  add.add_option("--created-by", add_options->creator, "Who is recorded as the creator (default: the first user)")
      ->type_name("USER");
  add.add_option("--group", add_options->groups, "A group the user becomes a member of; may be repeated")
      ->type_name("GROUP")
      ->expected(1)
      ->take_all();
  add.add_flag("--unchecked", add_options->unchecked,
               "Store an id that cannot be logged in by, or another user's certificate");
  add_options->credential.AddPasswordTo(add);
  add_options->credential.AddCertificateTo(add);

  const auto [remove, remove_options] =
      make("delete", "Delete users with their memberships\nAll of them or, when one does not exist, none.",
           "perenna-access user delete alice bob", DeleteUsers);
  remove.add_option("USER", remove_options->ids, "The ids of the users")->required();
  remove_options->lockout.AddTo(remove);

  const auto [list, list_options] =
      make("list", "List users with their groups", "perenna-access user list --limit 20", ListUsers);
  AddPageOptions(list, list_options->page);

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

  const auto [password, password_options] =
      make("set-password", "Change a user's password\nAsks for it at the terminal unless told where to read it.",
           "perenna-access user set-password alice", SetCredential);
  password.add_option("USER", password_options->id, "The user's id")->required();
  password_options->credential.AddPasswordTo(password);

  const auto [certificate, certificate_options] =
      make("set-certificate", "Make a user known by a TLS client certificate in place of a password",
           "perenna-access user set-certificate alice --certificate alice.pem", SetCertificate);
  certificate.add_option("USER", certificate_options->id, "The user's id")->required();
  certificate.add_flag("--unchecked", certificate_options->unchecked, "Store another user's certificate too");
  certificate_options->credential.AddCertificateTo(certificate);
}

} // namespace Tool
