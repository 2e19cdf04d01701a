#include "tool/command/entry/CredentialCommands.h"

#include <iostream>
#include <memory>

#include "directory/member/Membership.h"
#include "directory/Module.h"
#include "tool/cli/option/CredentialOptions.h"
#include "tool/cli/option/LockoutOptions.h"
#include "tool/command/Commands.h"
#include "tool/terminal/Prompt.h"
#include "tool/terminal/Table.h"

namespace Tool {

namespace {

struct Options {
  std::string id;
  CredentialOptions credential;
  LockoutOptions lockout;
  bool unchecked = false;
};

Failure NoUser(const std::string& id) {
  return {Failure::Kind::Refused, "there is no user " + Quoted(id)};
}

/// The authentication method of a user. Throws `Failure` when there is none.
std::string MethodOf(Database& database, const std::string& id) {
  const auto methods = database.Texts("SELECT CAST(auth_method AS TEXT) FROM users WHERE user_id = ?", {id});
  if (methods.empty()) {
    throw NoUser(id);
  }
  return methods.front();
}

ExitStatus SetCredential(const Context& context, const Options& options) {
  const auto writer = context.Writer();
  {
    Database stored(context.DatabaseFile(), Database::Access::Read);
    MethodOf(stored, options.id); // before a password is asked for
  }
  const Credential credential = options.credential.Read(options.id);
  const std::string value = credential.StoredValue();
  bool disabled = false;
  std::string method;
  writer->Write([&](Database& database) {
    // A new credential is no new permission: who is disabled stays so.
    disabled = IsDisabled(MethodOf(database, options.id));
    method = disabled ? DisabledMethod(credential.Method()) : credential.Method();
    if (!options.unchecked) {
      RequireOwnThumbprint(database, credential, options.id);
    }
    database.Run("UPDATE users SET auth_method = ?, auth_value = ? WHERE user_id = ?", {method, value, options.id});
  });
  context.Report("Changed the credential of user " + Quoted(options.id) + " (" + method + ")." +
                     (disabled ? " The user is still disabled." : ""),
                 {{"changed", {{"user_id", JsonText(options.id)}, {"auth_method", method}}}});
  return ExitStatus::Done;
}

ExitStatus SetCertificate(const Context& context, const Options& options) {
  if (!options.credential.IsCertificate()) {
    throw Failure(Failure::Kind::Input, "which certificate? Give --certificate FILE or --thumbprint TEXT");
  }
  return SetCredential(context, options);
}

/// Asks the module, as a server would.
ExitStatus Verify(const Context& context, const Options& options) {
  const std::string file = context.DatabaseFile();
  const bool disabled = [&] {
    Database database(file, Database::Access::Read);
    return IsDisabled(MethodOf(database, options.id));
  }();
  const Credential credential = options.credential.IsGiven()
                                    ? options.credential.Read(options.id)
                                    : Credential{AskForPassword("Password of " + Shown(options.id) + ": "), ""};
  bool fits = false;
  if (disabled) {
    fits = false; // the module would say in its log that it does not know the method
  } else if (credential.password) {
    Module module(file);
    fits = module.Ask([&](LocalAccessManager::UserManager& manager) {
      return manager.TestUserIdAndPassword(Perenna::HTTPRequest(Perenna::METH_GET, "/"), options.id,
                                           credential.password->Text());
    });
  } else {
    Database database(file, Database::Access::Read);
    fits = UserOfThumbprint(database, credential.thumbprint) == options.id;
  }
  if (context.WantsJson()) {
    PrintJson({{"user_id", JsonText(options.id)}, {"verified", fits}, {"disabled", disabled}});
  } else if (disabled) {
    std::cout << InColour("refused", Colour::Red) << ": the user is disabled\n";
  } else {
    std::cout << InColour(fits ? "verified" : "refused", fits ? Colour::Green : Colour::Red) << '\n';
  }
  return fits ? ExitStatus::Done : ExitStatus::Refused;
}

ExitStatus SetMethod(const Context& context, const Options& options, bool disable) {
  std::string method;
  bool changed = false;
  const Json warnings = options.lockout.Apply(context, [&](Database& database) {
    const std::string stored = MethodOf(database, options.id);
    changed = IsDisabled(stored) != disable;
    method = disable == IsDisabled(stored) ? stored
             : disable                     ? DisabledMethod(stored)
                                           : std::string(EnabledMethod(stored));
    if (changed) {
      database.Run("UPDATE users SET auth_method = ? WHERE user_id = ?", {method, options.id});
    }
  });
  const std::string state = disable ? "disabled" : "enabled";
  context.Report("User " + Quoted(options.id) + (changed ? " is now " : " was already ") + state + ".",
                 {{"user_id", JsonText(options.id)}, {"auth_method", JsonText(method)}, {"warnings", warnings}});
  return ExitStatus::Done;
}

ExitStatus Disable(const Context& context, const Options& options) {
  return SetMethod(context, options, true);
}

ExitStatus Enable(const Context& context, const Options& options) {
  return SetMethod(context, options, false);
}

} // namespace

void RequireOwnThumbprint(Database& database, const Credential& credential, const std::string& user_id) {
  const std::string other = credential.password ? "" : UserOfThumbprint(database, credential.thumbprint);
  if (!other.empty() && other != user_id) {
    throw Failure(Failure::Kind::Refused,
                  "the certificate is that of user " + Quoted(other) + "; --unchecked stores it all the same");
  }
}

void AddCredentialCommands(CLI::App& group, Context& context) {
  const auto make = [&](const std::string& name, const std::string& description, const std::string& example,
                        ExitStatus (*run)(const Context&, const Options&)) {
    CLI::App& command = AddCommand(group, name, description, example);
    auto options = std::make_shared<Options>();
    command.add_option("USER", options->id, "The user's id")->required();
    context.OnRun(command, [&context, options, run] { return run(context, *options); });
    return std::pair<CLI::App&, std::shared_ptr<Options>>(command, options);
  };
  const auto [password, password_options] =
      make("set-password", "Change a user's password\nAsks for it at the terminal unless told where to read it.",
           "perenna-access user set-password alice", SetCredential);
  password_options->credential.AddPasswordTo(password);

  const auto [certificate, certificate_options] =
      make("set-certificate", "Make a user known by a TLS client certificate in place of a password",
           "perenna-access user set-certificate alice --certificate alice.pem", SetCertificate);
  certificate.add_flag("--unchecked", certificate_options->unchecked, "Store another user's certificate too");
  certificate_options->credential.AddCertificateTo(certificate);

  const auto [verify, verify_options] =
      make("verify",
           "Does a password or a certificate let a user in?\nAsks for the password at the terminal unless a credential "
           "is named. Exit status 1: no.",
           "perenna-access user verify alice", Verify);
  verify_options->credential.AddPasswordTo(verify);
  verify_options->credential.AddCertificateTo(verify);

  const auto [disable, disable_options] =
      make("disable",
           "Keep a user out, whatever the credential\nThe credential, the groups and the user's record stay for "
           "\"enable\". What a server remembers of a session of its own does not end by this.",
           "perenna-access user disable alice", Disable);
  disable_options->lockout.AddTo(disable);

  const auto [enable, enable_options] = make("enable", "Let a disabled user in again, with the credential of before",
                                             "perenna-access user enable alice", Enable);
  static_cast<void>(enable_options);
  static_cast<void>(enable);
}

} // namespace Tool
