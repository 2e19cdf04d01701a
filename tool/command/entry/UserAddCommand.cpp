#include <array>
#include <memory>

#include "directory/member/Creation.h"
#include "directory/member/CsvUsers.h"
#include "directory/file/NewFile.h"
#include "directory/member/Membership.h"
#include "directory/Module.h"
#include "tool/cli/option/CredentialOptions.h"
#include "tool/cli/option/Validators.h"
#include "tool/command/Commands.h"
#include "tool/command/entry/CredentialCommands.h"
#include "tool/command/entry/Listing.h"
#include "tool/terminal/Output.h"
#include "tool/terminal/ProgressBar.h"

namespace Tool {

namespace {

namespace Keys = LocalAccessManager::Strings;

struct AddOptions {
  std::string id;
  std::string creator;
  std::vector<std::string> groups;
  CredentialOptions credential;
  std::string csv;
  std::string passwords;
  bool generate = false;
  bool unchecked = false;
};

/// Who is recorded as the creator. Throws `Failure`.
std::string CreatorOf(Database& database, const AddOptions& options) {
  if (!options.creator.empty()) {
    if (!UserExists(database, options.creator)) {
      throw Failure(Failure::Kind::Input, "--created-by: there is no user " + Quoted(options.creator));
    }
    return options.creator;
  }
  const auto first = database.Texts("SELECT user_id FROM users ORDER BY rowid LIMIT 1");
  if (first.empty()) {
    throw Failure(Failure::Kind::Refused, "the directory has no user who could create one; make a new one with "
                                          "\"init\", or import one");
  }
  return first.front();
}

void RequireNew(Database& database, const std::string& id) {
  if (UserExists(database, id)) {
    throw Failure(Failure::Kind::Refused, "the user " + Quoted(id) + " exists already");
  }
}

ExitStatus AddOne(const Context& context, const AddOptions& options) {
  const std::string file = context.DatabaseFile();
  Perenna::PListDict request;
  {
    Database database(file, Database::Access::Read);
    RequireNew(database, options.id); // before a password is asked for
    request.SetValue(Keys::create_user, CreatorOf(database, options));
    const std::string fault = options.unchecked ? "" : UserIdFault(options.id, !options.credential.IsCertificate());
    if (!fault.empty()) {
      throw Failure(Failure::Kind::Input,
                    "USER: " + Quoted(options.id) + ' ' + fault + "; --unchecked adds it all the same");
    }
    for (const std::string& group : options.groups) {
      if (!GroupExists(database, group)) {
        throw Failure(Failure::Kind::Input, "--group: there is no group " + Quoted(group));
      }
    }
  }
  request.SetValue(Keys::user_id, options.id);
  if (options.generate && options.credential.IsGiven()) {
    throw Failure(Failure::Kind::Input, "--generate-password: a credential is given as well");
  }
  const Credential credential =
      options.generate ? Credential{GeneratePassword(), ""} : options.credential.Read(options.id);
  const bool is_one_step = !options.groups.empty() || !credential.password;
  if (const auto writer = context.Writer(); !is_one_step && writer->ModuleMayWrite()) {
    credential.AddTo(request);
    Module module(file);
    const auto created =
        module.Apply([&request](LocalAccessManager::UserManager& manager) { return manager.CreateUser(request); });
    if (created == Tarn::RESULT_FILEEXISTS) {
      throw Failure(Failure::Kind::Refused, "the user " + Quoted(options.id) + " exists already");
    }
  } else { // nobody sees a user who is not in his groups yet, and a certificate does not become that of two
    const std::string creator = Field(request, Keys::create_user);
    writer->Write([&](Database& database) {
      if (!options.unchecked) {
        RequireOwnThumbprint(database, credential, options.id);
      }
      CreateUser(database, options.id, credential, creator);
      ReplaceUserGroups(database, options.id, options.groups);
    });
  }
  Json json = {{"added", {{"user_id", JsonText(options.id)}, {"auth_method", credential.Method()}}}};
  std::string text = "Added user " + Quoted(options.id) + ".";
  if (options.generate) { // what was asked for: nobody can read it anywhere later
    json["added"]["password"] = credential.password->Text();
    text += "\nPassword: " + credential.password->Text();
  }
  context.Report(text, json);
  return ExitStatus::Done;
}

/// Adds the users, each with a credential, in the caller's transaction. Throws `Failure` that names the line.
void AddAll(Database& database, const std::vector<CsvUser>& users, const std::vector<Credential>& credentials,
            const std::string& creator, const std::string& csv, Progress& progress) {
  Statement insert(
      database, "INSERT INTO users(user_id, auth_method, auth_value, create_date, create_user) VALUES(?, ?, ?, ?, ?)");
  std::array<char, Tarn::DateTimeLen + 1> date{};
  Tarn::Timestamp().EncodeString(date.data(), date.size());
  for (std::size_t i = 0; i < users.size(); ++i) {
    const CsvUser& user = users[i];
    try {
      RequireNew(database, user.id);
      insert.Run({user.id, credentials[i].Method(), credentials[i].StoredValue(), date.data(), creator});
      ReplaceUserGroups(database, user.id, user.groups);
    } catch (const Failure& failure) {
      throw Failure(failure.What() == Failure::Kind::System ? failure.What() : Failure::Kind::Input,
                    csv + ":" + std::to_string(user.line) + ": " + failure.what() + "; nobody was added");
    }
    progress.Advance(1);
  }
}

void WritePasswords(const NewFile& file, const std::string& name, const std::vector<CsvUser>& users,
                    const std::vector<Credential>& credentials) {
  Output out(file.WorkName(), name);
  out.Write("user_id,password\r\n");
  for (std::size_t i = 0; i < users.size(); ++i) {
    out.Write(CsvField(users[i].id) + ',' + credentials[i].password->Text() + "\r\n");
  }
  out.Finish();
  file.Publish();
}

/// All users of a file or none. Their passwords are on the disk before the users are.
ExitStatus AddMany(const Context& context, const AddOptions& options) {
  if (options.passwords.empty()) {
    throw Failure(Failure::Kind::Input, "--csv: where do the passwords go? Give --passwords FILE");
  }
  if (options.credential.IsGiven()) {
    throw Failure(Failure::Kind::Input, "--csv: each user gets a password of its own; name no credential");
  }
  ProgressBar progress;
  std::vector<CsvUser> users = ReadCsvUsers(options.csv, progress);
  const auto writer = context.Writer();
  const NewFile file(options.passwords, NewFile::Existing::Keep, "its passwords would be lost");
  std::vector<Credential> credentials(users.size());
  for (std::size_t i = 0; i < users.size(); ++i) {
    credentials[i].password.emplace(GeneratePassword());
    users[i].groups.insert(users[i].groups.end(), options.groups.begin(), options.groups.end());
  }
  bool is_published = false;
  writer->Write([&](Database& database) {
    progress.Begin("Adding", users.size());
    AddAll(database, users, credentials, CreatorOf(database, options), options.csv, progress);
    if (!is_published) { // once, however often others come first
      WritePasswords(file, options.passwords, users, credentials);
      is_published = true;
    }
  });
  progress.Clear();
  context.Report("Added " + Count(users.size(), "user") + "; their passwords are in " + Quoted(options.passwords) + '.',
                 {{"added_count", users.size()}, {"passwords", JsonText(options.passwords)}});
  return ExitStatus::Done;
}

ExitStatus Add(const Context& context, const AddOptions& options) {
  if (options.csv.empty() == options.id.empty()) {
    throw Failure(Failure::Kind::Input, "which user? Give USER, or --csv FILE for many");
  }
  return options.csv.empty() ? AddOne(context, options) : AddMany(context, options);
}

} // namespace

void AddUserAddCommand(CLI::App& group, Context& context) {
  CLI::App& add = AddCommand(
      group, "add",
      "Add a user, or many\nAsks for the password at the terminal unless a credential is named. With --csv, adds all "
      "users of a file or none, each with a password of its own.",
      "perenna-access user add alice --group editors\n"
      "  perenna-access user add --csv staff.csv --passwords staff-passwords.csv --group staff");
  auto options = std::make_shared<AddOptions>();
  add.add_option("USER", options->id, "The new user's id")->type_name("NEW")->check(NotEmpty());
  add.add_option("--created-by", options->creator, "Who is recorded as the creator (default: the first user)")
      ->type_name("USER");
  add.add_option("--group", options->groups, "A group the user becomes a member of; may be repeated")
      ->type_name("GROUP")
      ->expected(1)
      ->take_all();
  add.add_flag("--generate-password", options->generate, "Make a random password of 100 bits and print it, once");
  CLI::Option* const csv =
      add.add_option("--csv", options->csv,
                     "Users to add (RFC 4180; - for standard input): a first line \"user_id,groups\", then one a line, "
                     "groups joined by \";\"")
          ->type_name("FILE");
  add.add_option("--passwords", options->passwords,
                 "Where --csv writes the new passwords: a new file, for its owner alone")
      ->type_name("FILE")
      ->needs(csv);
  add.add_flag("--unchecked", options->unchecked,
               "Store an id that cannot be logged in by, or another user's certificate");
  options->credential.AddPasswordTo(add);
  options->credential.AddCertificateTo(add);
  context.OnRun(add, [&context, options] { return Add(context, *options); });
}

} // namespace Tool
