#include "tool/command/Commands.h"

#include <cerrno>
#include <filesystem>
#include <memory>
#include <system_error>

#include <sys/stat.h>
#include <unistd.h>

#include "LocalAccessManager.h"
#include "directory/file/Database.h"
#include "directory/file/NewFile.h"
#include "directory/Log.h"
#include "directory/Membership.h"
#include "tool/cli/CredentialOptions.h"
#include "tool/cli/Validators.h"
#include "tool/DirectoryNames.h"
#include "tool/terminal/Prompt.h"

namespace Tool {

namespace {

constexpr const char* AdministratorsName = "Administrators";
constexpr const char* AdministrationPattern = "^/access/(users|groups|filters|batch)([/?]|$)";
constexpr std::size_t DateTextBytes = 64;

struct InitOptions {
  std::string user = "admin";
  std::string administrators;
  bool no_administrators = false;
  CredentialOptions credential;
};

void RequireDirectoryOf(const std::string& file) {
  const std::string directory = std::filesystem::absolute(file).parent_path().string();
  if (access(directory.c_str(), W_OK | X_OK) != 0) {
    throw Failure(Failure::Kind::System, "cannot create " + Quoted(file) + " in the directory " + Quoted(directory) +
                                             ": " + std::generic_category().message(errno));
  }
}

/// Lets the module create the file with its schema.
void CreateSchema(const std::string& file) {
  Perenna::PListDict section;
  section.SetValue(LocalAccessManager::Strings::DatabaseFilename, file);
  TheLog().Clear();
  LocalAccessManager::UserManager manager; // closes the file again when it ends
  if (manager.InitUserManager(section).Failed()) {
    const auto errors = TheLog().Errors();
    throw Failure(Failure::Kind::System, errors.empty() ? "the database could not be created" : Shown(errors.back()));
  }
}

void AddFirstUser(Database& database, const std::string& user_id, const Credential& credential) {
  std::array<char, DateTextBytes> now{};
  Tarn::Timestamp().EncodeString(now.data(), now.size());
  database.Run("INSERT INTO users(user_id, auth_method, auth_value, create_date, create_user) VALUES(?, ?, ?, ?, ?)",
               {user_id, credential.Method(), credential.StoredValue(), now.data(), user_id});
}

void AddAdministrators(Database& database, const std::string& group_id, const std::string& user_id) {
  database.Run("INSERT INTO groups(group_id, group_name) VALUES(?, ?)", {group_id, AdministratorsName});
  ReplaceGroupUsers(database, group_id, {user_id});
  for (const char* const method : {"GET", "HEAD", "OPTIONS", "POST", "PUT", "PATCH", "DELETE"}) {
    database.Run("INSERT INTO filters(method, group_id, filter, action) VALUES(?, ?, ?, 'Allow')",
                 {method, group_id, AdministrationPattern});
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

ExitStatus Init(const Context& context, const InitOptions& options) {
  const std::string file = context.DatabaseFile();
  umask(S_IRWXG | S_IRWXO); // the file holds credentials
  const NewFile created(file, NewFile::Existing::Keep, "init never touches an existing file");
  RequireDirectoryOf(file); // before a password is asked for
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
  created.Publish();
  context.Report("Created " + Quoted(file) + " with the user " + Quoted(options.user) +
                     (group.empty() ? "." : " in the group " + Quoted(group) + "."),
                 {{"created", JsonText(file)},
                  {"user_id", JsonText(options.user)},
                  {"group_id", group.empty() ? Json() : JsonText(group)}});
  return ExitStatus::Done;
}

} // namespace

void AddInitCommand(CLI::App& app, Context& context) {
  CLI::App& init = AddCommand(app, "init",
                              "Create a database with its first user\nAsks for the password at the terminal unless a "
                              "credential is named.",
                              "perenna-access --database access.db init --user admin");
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
  options->credential.AddPasswordTo(init);
  options->credential.AddCertificateTo(init);
  context.OnRun(init, [&context, options] { return Init(context, *options); });
}

} // namespace Tool
