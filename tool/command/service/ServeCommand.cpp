#include "tool/command/Commands.h"

#include <iostream>
#include <memory>

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include "directory/file/Database.h"
#include "directory/file/Tune.h"
#include "directory/replica/ReplicaRow.h"
#include "host/Configuration.h"
#include "host/Service.h"
#include "host/decision/watch/CallWatch.h"

namespace Tool {

namespace {

/// How to run another command of the tool on the directory of the configuration.
std::string Command(const Context& context, const std::string& rest) {
  return "perenna-access --config " + Shown(context.ConfigurationFile()) + " " + rest;
}

void Warn(const std::string& message) {
  std::cerr << "perenna-access: warning: " + message + "\n";
}

/// How to make the directory; by root, for a service that runs as another user.
std::string InitCommand(const Context& context, const Host::Configuration& configuration) {
  const passwd* const user =
      geteuid() == 0 ? nullptr : getpwuid(geteuid()); // NOLINT(concurrency-mt-unsafe): no thread yet
  return Command(context, "init --user admin --administrators " + configuration.administrators +
                              (user == nullptr ? "" : " --owner " + std::string(user->pw_name)));
}

/// Looks at the directory before anything of the host keeps it open. Throws when there is none to serve.
void LookAtDirectory(const Context& context, const Host::Configuration& configuration) {
  const std::string& file = configuration.database_filename;
  struct stat status = {};
  if (stat(file.c_str(), &status) != 0 && errno == ENOENT) {
    throw Failure(Failure::Kind::Input,
                  "there is no database " + Quoted(file) + " yet; make it: " + InitCommand(context, configuration));
  }
  Database database(file, Database::Access::Read);
  if (configuration.sync.configured && !AccessDirectory::ReadReplicaRow(database)) {
    Warn("Sync.Endpoints are configured, but the file is no replica of their directory, so nothing brings it up to "
         "date" +
         std::string(configuration.sync.on_stale == Host::OnStale::Refuse
                         ? ", and nothing is decided from it while Sync.OnStale is \"refuse\""
                         : "") +
         ": " + Command(context, "sync join") + ", with the file out of the way");
  }
  if (database.Number("SELECT count(*) FROM users") == 0) {
    Warn("the directory has no users, so nobody is allowed anything: " +
         Command(context, "init --user admin --administrators " + configuration.administrators));
  }
  if (!StepsToTune(database).empty()) {
    Warn("the file is not tuned, so decisions cost more than they need: " + Command(context, "tune"));
  }
}

Json AddressesOf(const Host::Configuration& configuration) {
  Json addresses = Json::array();
  for (const Host::ListenAddress& address : configuration.listen) {
    addresses.push_back(JsonText(address.Text()));
  }
  return addresses;
}

ExitStatus RunServe(const Context& context, bool only_check) {
  const std::string& file = context.ConfigurationFile();
  if (file.empty()) {
    throw Failure(Failure::Kind::Input, "which configuration? Give --config FILE");
  }
  const Host::Configuration configuration = Host::ReadConfiguration(file);
  if (only_check) {
    context.Report("The configuration " + Quoted(file) + " can be used.",
                   {{"configuration", JsonText(file)},
                    {"database", JsonText(configuration.database_filename)},
                    {"listen", AddressesOf(configuration)}});
    return ExitStatus::Done;
  }
  Host::WatchSqliteErrors(); // before the first use of SQLite
  LookAtDirectory(context, configuration);
  // Without a store nothing can be changed on a replica, but decided.
  const auto writer = configuration.sync.configured
                          ? context.Writer()
                          : std::make_shared<AccessDirectory::FileWriter>(configuration.database_filename);
  return Host::Serve(configuration, *writer) == Host::ServiceEnd::Asked ? ExitStatus::Done : ExitStatus::Failed;
}

} // namespace

void AddServeCommand(CLI::App& app, Context& context) {
  CLI::App& serve = AddCommand(
      app, "serve",
      "Answer a web server's questions about requests\n"
      "Serves decisions over HTTP until SIGTERM: a proxy such as nginx asks at /auth, for each request, whether its "
      "caller may do it. --config names the configuration; docs/host.md explains it. SIGHUP opens log files and TLS "
      "files anew. Ends with 3 when the database file was replaced or removed, to be started again.",
      "perenna-access serve --config /etc/perenna-access/perenna-access.json");
  auto only_check = std::make_shared<bool>(false);
  serve.add_flag("--check", *only_check, "Only check the configuration: 0 when it can be used, else 2");
  context.OnRun(serve, [&context, only_check] { return RunServe(context, *only_check); });
}

} // namespace Tool
