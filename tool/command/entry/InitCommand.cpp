#include "tool/command/Commands.h"

#include <array>
#include <filesystem>
#include <memory>
#include <optional>
#include <system_error>

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include "LocalAccessManager.h"
#include "directory/file/Database.h"
#include "directory/file/FileNames.h"
#include "directory/file/NewFile.h"
#include "directory/file/Schema.h"
#include "directory/member/Membership.h"
#include "tool/cli/option/CredentialOptions.h"
#include "tool/cli/option/Validators.h"
#include "tool/DirectoryNames.h"
#include "tool/terminal/Prompt.h"

namespace Tool {

namespace {

constexpr const char* AdministratorsName = "Administrators";
constexpr const char* AdministrationPattern = "^/access/";
constexpr std::size_t DateTextBytes = 64;

struct InitOptions {
  std::string user = "admin";
  std::string administrators;
  bool no_administrators = false;
  std::string owner; ///< a user of the system; empty: whoever runs the command
  CredentialOptions credential;
};

void AddFirstUser(Database& database, const std::string& user_id, const Credential& credential) {
  std::array<char, DateTextBytes> now{};
  Tarn::Timestamp().EncodeString(now.data(), now.size());
  database.Run("INSERT INTO users(user_id, auth_method, auth_value, create_date, create_user) VALUES(?, ?, ?, ?, ?)",
               {user_id, credential.Method(), credential.StoredValue(), now.data(), user_id});
}

/// Lets a user administer: adds what is missing of the group, its filters and the membership.
void AddAdministrators(Database& database, const std::string& group_id, const std::string& user_id) {
  if (!GroupExists(database, group_id)) {
    database.Run("INSERT INTO groups(group_id, group_name) VALUES(?, ?)", {group_id, AdministratorsName});
  }
  const auto add_once = [&database](const std::string& table, const std::string& columns,
                                    const std::vector<std::string>& values) {
    std::string marks = "?";
    for (std::size_t i = 1; i < values.size(); ++i) {
      marks += ", ?";
    }
    if (database.Number("SELECT count(*) FROM " + table + " WHERE (" + columns + ") = (" + marks + ")", values) == 0) {
      database.Run("INSERT INTO " + table + "(" + columns + ") VALUES(" + marks + ")", values);
    }
  };
  add_once("groupusers", "group_id, user_id", {group_id, user_id});
  for (const char* const method : {"GET", "HEAD", "OPTIONS", "POST", "PUT", "PATCH", "DELETE"}) {
    add_once("filters", "method, group_id, filter, action", {method, group_id, AdministrationPattern, "Allow"});
  }
}

/// The id of the administrators group, empty for none.
std::string AdministratorsGroup(const InitOptions& options) {
  if (options.no_administrators || !options.administrators.empty()) {
    return options.administrators;
  }
  const bool wanted = HasTerminal() && AskYesOrNo("Create the group \"administrators\", which may use the paths of the "
                                                  "administration (/access/users and the like), with this user in it?",
                                                  true);
  return wanted ? "administrators" : "";
}

void Report(const Context& context, const std::string& done, const std::string& text, const InitOptions& options,
            const std::string& group) {
  context.Report(text, {{done, JsonText(context.DatabaseFile())},
                        {"user_id", JsonText(options.user)},
                        {"group_id", group.empty() ? Json() : JsonText(group)}});
}

std::string InGroup(const std::string& group) {
  return group.empty() ? "." : " in the group " + Quoted(group) + ".";
}

/// A user of the system and his own group; by default, whoever runs the command.
struct Owner {
  uid_t user = geteuid();
  gid_t group = getegid();
};

Owner FindOwner(const std::string& name) {
  if (name.empty()) {
    return {};
  }
  errno = 0;
  const passwd* const entry = getpwnam(name.c_str()); // NOLINT(concurrency-mt-unsafe): the tool has one thread
  if (entry == nullptr) {
    throw Failure(Failure::Kind::Input, "--owner: this machine has no user " + Quoted(name));
  }
  return {entry->pw_uid, entry->pw_gid};
}

ExitStatus Create(const Context& context, const std::string& file, const InitOptions& options) {
  umask(S_IRWXG | S_IRWXO); // the file holds credentials
  const NewFile created(file, NewFile::Existing::Keep, "init makes new files, and completes directories without users");
  RequireNoRemains(file);
  const Owner owner = FindOwner(options.owner);
  const Credential credential = options.credential.Read(options.user);
  const std::string group = AdministratorsGroup(options);

  CreateSchema(created.WorkName());
  {
    Database database(created.WorkName(), Database::Access::Write);
    Transaction transaction(database);
    AddFirstUser(database, options.user, credential);
    if (!group.empty()) {
      AddAdministrators(database, group, options.user);
    }
    transaction.Commit();
  }
  if (!options.owner.empty()) {
    created.GiveTo(owner.user, owner.group);
  }
  created.Publish();
  Report(context, "created", "Created " + Quoted(file) + " with the user " + Quoted(options.user) + InGroup(group),
         options, group);
  return ExitStatus::Done;
}

bool HasUsers(Database& database) {
  return database.Number("SELECT EXISTS(SELECT 1 FROM users)") != 0;
}

/// A server makes a file without any user. Nobody could log in, nor add one: every user is created by another.
ExitStatus AddFirst(const Context& context, Database& database, const InitOptions& options) {
  const Credential credential = options.credential.Read(options.user);
  const std::string group = AdministratorsGroup(options);
  Transaction transaction(database);
  if (HasUsers(database)) {
    throw Failure(Failure::Kind::Refused, "the directory " + Quoted(database.File()) + " has got a user meanwhile");
  }
  AddFirstUser(database, options.user, credential);
  if (!group.empty()) {
    AddAdministrators(database, group, options.user);
  }
  transaction.Commit();
  Report(context, "completed",
         "Added the user " + Quoted(options.user) + " to " + Quoted(database.File()) + InGroup(group), options, group);
  return ExitStatus::Done;
}

ExitStatus AppointAdministrator(const Context& context, Database& database, const InitOptions& options) {
  Transaction transaction(database);
  if (!UserExists(database, options.user)) {
    throw Failure(Failure::Kind::Refused,
                  "there is no user " + Quoted(options.user) + " who could administer; --user names one");
  }
  AddAdministrators(database, options.administrators, options.user);
  transaction.Commit();
  Report(context, "completed",
         "The user " + Quoted(options.user) + " may now administer " + Quoted(database.File()) +
             InGroup(options.administrators),
         options, options.administrators);
  return ExitStatus::Done;
}

ExitStatus Complete(const Context& context, const std::string& file, const InitOptions& options) {
  if (!options.owner.empty()) {
    throw Failure(Failure::Kind::Refused, Quoted(file) + " exists already: --owner is for a file that init makes");
  }
  std::optional<Database> database;
  try {
    database.emplace(file, Database::Access::Write);
  } catch (const Failure& failure) {
    throw Failure(Failure::Kind::Refused,
                  Quoted(file) + " exists already, and init cannot complete it: " + failure.what());
  }
  if (!HasUsers(*database)) {
    return AddFirst(context, *database, options);
  }
  if (options.administrators.empty() || options.credential.IsGiven()) {
    throw Failure(Failure::Kind::Refused, Quoted(file) + " exists already and has users; --administrators GROUP with "
                                                         "--user USER lets one of them administer it");
  }
  return AppointAdministrator(context, *database, options);
}

ExitStatus Init(const Context& context, const InitOptions& options) {
  const std::string file = context.DatabaseFile();
  RequireFileName(file);
  if (const std::string fault = UserIdFault(options.user, !options.credential.IsCertificate()); !fault.empty()) {
    throw Failure(Failure::Kind::Input, "--user: " + Quoted(options.user) + ' ' + fault);
  }
  std::error_code unknown;
  return std::filesystem::is_regular_file(file, unknown) ? Complete(context, file, options)
                                                         : Create(context, file, options);
}

} // namespace

void AddInitCommand(CLI::App& app, Context& context) {
  CLI::App& init = AddCommand(app, "init",
                              "Create a database with its first user\nAsks for the password at the terminal unless a "
                              "credential is named. In a file that a server made, without any user, adds the first "
                              "one. In a directory with users, --administrators lets an existing one administer it.",
                              "perenna-access --database access.db init --user admin\n"
                              "  perenna-access --database access.db init --user admin --administrators operators\n"
                              "  perenna-access --config /etc/perenna-access/perenna-access.json init --owner "
                              "perenna-access");
  auto options = std::make_shared<InitOptions>();
  init.add_option("--user", options->user, "The first user's id")
      ->type_name("USER")
      ->capture_default_str()
      ->check(NotEmpty());
  CLI::Option* const without =
      init.add_flag("--no-administrators", options->no_administrators, "Create no administrators group");
  init.add_option("--administrators", options->administrators,
                  "Create an administrators group of this id with Allow filters for the paths of the administration, "
                  "and the first user in it; asked for at the terminal when neither is given")
      ->type_name("GROUP")
      ->check(GroupId())
      ->excludes(without);
  init.add_option("--owner", options->owner,
                  "Give the new file to this user of the system, such as the one that the service runs as; for root")
      ->type_name("NAME")
      ->check(NotEmpty());
  options->credential.AddPasswordTo(init);
  options->credential.AddCertificateTo(init);
  context.OnRun(init, [&context, options] { return Init(context, *options); });
}

} // namespace Tool
