#include "tool/command/Commands.h"

#include <csignal>
#include <iostream>
#include <memory>

#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include "directory/file/Database.h"
#include "directory/replica/ReplicaRow.h"
#include "directory/replica/SyncState.h"
#include "sync/agent/Agent.h"
#include "sync/agent/Synchronisation.h"
#include "sync/writer/Initialisation.h"
#include "tool/DirectoryNames.h"
#include "tool/terminal/ProgressBar.h"

namespace Tool {

namespace {

struct SyncOptions {
  bool adopt = false;
  /// Of the subcommand that was given; null: the agent.
  ExitStatus (*run)(const Context&, const SyncOptions&) = nullptr;
};

Sync::Settings SettingsOf(const Context& context) {
  if (context.ConfigurationFile().empty()) {
    throw Failure(Failure::Kind::Input, "which store? Give --config FILE, whose section \"Sync\" names it");
  }
  return Sync::ReadSettings(context.ConfigurationFile());
}

/// The signals that end the agent, as a descriptor.
int EndingSignals() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGTERM);
  sigaddset(&set, SIGINT);
  pthread_sigmask(SIG_BLOCK, &set, nullptr); // no thread yet
  return signalfd(-1, &set, SFD_CLOEXEC);
}

ExitStatus Adopt(const Context& context) {
  Sync::Client client(SettingsOf(context));
  const std::string file = context.DatabaseFile();
  const auto current = Sync::ReadCurrent(client);
  if (!current) {
    throw Failure(Failure::Kind::Refused, "the store holds no directory under " + Quoted(client.Prefix()));
  }
  Sync::Replica replica(file);
  const Sync::Synchronised done = Sync::Synchronise(client, replica, *current);
  context.Report("The file " + Quoted(file) + " now holds the store's directory: " + Count(done.entries, "row") + ", " +
                     Count(done.changed, "row") + " changed.",
                 {{"adopted", JsonText(file)}, {"entries", done.entries}, {"changed", done.changed}});
  return ExitStatus::Done;
}

ExitStatus RunAgent(const Context& context, const SyncOptions& options) {
  umask(S_IRWXG | S_IRWXO); // the file holds credentials
  if (options.adopt) {
    return Adopt(context);
  }
  Sync::Agent agent(SettingsOf(context), context.DatabaseFile(), EndingSignals(),
                    [](const std::string& sentence) { std::cerr << "perenna-access sync: " + sentence + "\n"; });
  agent.Run();
  return ExitStatus::Done;
}

ExitStatus Init(const Context& context, const SyncOptions& /*options*/) {
  Sync::Client client(SettingsOf(context));
  const std::string file = context.DatabaseFile();
  ProgressBar progress;
  const Sync::PutDirectory done = Sync::PutIntoStore(client, file, progress);
  progress.Clear();
  context.Report("The store now holds " + CountsText(done.counts) + " of " + Quoted(file) +
                     ", which is its first replica." +
                     (done.merged == 0 ? std::string() : " " + Count(done.merged, "repeated row") + " merged."),
                 {{"directory", done.directory}, {"stored", CountsJson(done.counts)}, {"merged", done.merged}});
  return ExitStatus::Done;
}

ExitStatus Join(const Context& context, const SyncOptions& /*options*/) {
  umask(S_IRWXG | S_IRWXO);
  Sync::Client client(SettingsOf(context));
  const std::string file = context.DatabaseFile();
  const Sync::Synchronised made = Sync::MakeReplica(client, file);
  context.Report("Made " + Quoted(file) + ", a replica of " + Count(made.entries, "row") + ".",
                 {{"joined", JsonText(file)}, {"entries", made.entries}});
  return ExitStatus::Done;
}

ExitStatus Status(const Context& context, const SyncOptions& /*options*/) {
  const std::string file = context.DatabaseFile();
  const auto row = ReadReplicaRow(file);
  if (!row) {
    throw Failure(Failure::Kind::Refused, "the database " + Quoted(file) + " is no replica");
  }
  const auto state = ReadSyncState(file);
  const auto age = SyncAge(file);
  const bool runs = state && kill(static_cast<pid_t>(state->pid), 0) == 0;
  const std::string phase = !runs ? "no agent runs" : state->phase;
  const double seconds = age ? std::chrono::duration<double>(*age).count() : -1;
  if (context.WantsJson()) {
    PrintJson({{"directory", JsonText(row->directory)},
               {"generation", row->generation},
               {"revision", row->revision},
               {"phase", phase},
               {"reason", state ? JsonText(state->reason) : Json("")},
               {"member", state ? JsonText(state->member) : Json("")},
               {"age_seconds", age ? Json(seconds) : Json()}});
  } else {
    std::ostringstream known;
    known.precision(1);
    known << std::fixed << seconds << " s ago";
    std::cout << "Directory  " << Shown(row->directory) << "\nRevision   " << row->revision << " of generation "
              << row->generation << "\nAgent      " << phase
              << (state && !state->reason.empty() ? ": " + Shown(state->reason) : "")
              << (state ? ", asking " + Shown(state->member) : "") << "\nNewest     "
              << (age ? "known to be " + known.str() : "not known") << '\n';
  }
  return runs && state->phase == "following" ? ExitStatus::Done : ExitStatus::Refused;
}

} // namespace

void AddSyncCommands(CLI::App& app, Context& context) {
  CLI::App& sync = AddCommand(
      app, "sync",
      "Keep one directory on many machines\n"
      "Without a subcommand, runs the agent, which keeps this machine's file in step with the store that the section "
      "\"Sync\" of --config names, until SIGTERM. It makes the file when there is none. docs/many-machines.md explains "
      "it.",
      "perenna-access sync --config /etc/perenna-access/perenna-access.json");
  auto options = std::make_shared<SyncOptions>();
  sync.require_subcommand(0, 1);
  sync.add_flag("--adopt", options->adopt,
                "Take over the store's directory once, although it is not the one that this file was made from");
  context.OnRun(sync, [&context, options] {
    return options->run == nullptr ? RunAgent(context, *options) : options->run(context, *options);
  });
  const auto make = [&](const std::string& name, const std::string& description, const std::string& example,
                        ExitStatus (*run)(const Context&, const SyncOptions&)) {
    CLI::App& command = AddCommand(sync, name, description, example);
    command.callback([options, run] { options->run = run; }); // comes before that of "sync" itself
  };
  make("init",
       "Put this machine's directory into an empty store\nThe file becomes its first replica; it is tuned, and rows "
       "that "
       "repeat others are merged. The file is locked meanwhile.",
       "perenna-access sync init --config perenna-access.json", Init);
  make("join",
       "Make this machine's file from the store\nIt must not exist. The agent does the same by itself; a backup of "
       "another machine's file, restored here, saves the way over the network.",
       "perenna-access sync join --config perenna-access.json", Join);
  make("status",
       "Show which state this machine's file is at, and how old it may be\nExits with 1 unless an agent follows the "
       "store.",
       "perenna-access sync status --config perenna-access.json", Status);
}

} // namespace Tool
