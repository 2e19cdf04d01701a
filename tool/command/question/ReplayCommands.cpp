#include "tool/command/Commands.h"

#include <cerrno>
#include <filesystem>
#include <iostream>
#include <memory>
#include <set>
#include <system_error>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "directory/file/Backup.h"
#include "directory/file/NewFile.h"
#include "directory/replay/Replay.h"
#include "host/decision/LoggedTarget.h"
#include "tool/terminal/ProgressBar.h"
#include "tool/terminal/Table.h"

namespace Tool {

namespace {

struct ReplayOptions {
  std::string log;
  std::vector<std::string> command;
};

TargetOf LoggedTargetsOf(const Host::DirectoryPart& part) {
  return Host::LoggedTargets(part.target, part.target_allows);
}

std::string RulingText(const Ruling& ruling) {
  if (!ruling.decider) {
    return ruling.allowed ? "allowed" : "refused";
  }
  const GroupFilter& decider = *ruling.decider;
  const std::string filter = decider.action + " of " + Quoted(decider.group) + ": ";
  return (ruling.undecided ? "in doubt, " : "") + Shown(filter, Backslash::Kept) +
         Shown(decider.pattern, Backslash::Kept);
}

void PrintReport(const ReplayReport& report) {
  if (!report.flips.empty()) {
    Table table({"COUNT", "METHOD", "BEFORE", "AFTER", "FIRST"});
    for (const Flip& flip : report.flips) {
      table.Add({std::to_string(flip.count), Shown(flip.example.method_text),
                 Cell(RulingText(flip.before), flip.before.allowed ? Colour::Green : Colour::Red),
                 Cell(RulingText(flip.after), flip.after.allowed ? Colour::Green : Colour::Red),
                 Shown(flip.example.user_id) + ' ' + Shown(flip.example.target, Backslash::Kept)});
    }
    table.Print(std::cout);
    std::cout << '\n';
  }
  std::cout << Count(report.judged, "request") << " judged, " << report.differing << " otherwise than before.\n";
  std::string reasons;
  for (std::size_t why = 1; why < UnjudgedCount; ++why) {
    if (report.unjudged.at(why) > 0) {
      reasons += (reasons.empty() ? "" : ", ") + std::to_string(report.unjudged.at(why)) + ' ' +
                 UnjudgedText(static_cast<LoggedRequest::Unjudged>(why));
    }
  }
  if (!reasons.empty()) {
    std::cout << Count(report.Unjudged(), "line") << " not judged: " << reasons << ".\n";
  }
}

ExitStatus Finish(const Context& context, const ReplayReport& report) {
  if (report.lines == 0) {
    throw Failure(Failure::Kind::Input, "the log holds no request");
  }
  if (context.WantsJson()) {
    PrintJson(report.ToJson());
  } else {
    PrintReport(report);
  }
  return report.differing == 0 ? ExitStatus::Done : ExitStatus::Refused;
}

ExitStatus RunReplay(const Context& context, const ReplayOptions& options) {
  Database database(context.DatabaseFile(), Database::Access::Read);
  Policy policy(database);
  ProgressBar progress;
  RequestLog log(options.log, progress);
  const ReplayReport report = AccessDirectory::Replay(log, LoggedTargetsOf(context.Directory()), policy);
  progress.Clear();
  return Finish(context, report);
}

/// Runs the tool once more, on another database, with nothing on standard output. Throws `Failure` unless it is done.
void RunOn(const std::string& database, const std::vector<std::string>& command) {
  std::vector<std::string> words = {"perenna-access", "--yes", "--database=" + database};
  words.insert(words.end(), command.begin(), command.end());
  if (command.front() == "import") { // of a copy that is thrown away
    words.insert(words.begin() + 4, "--no-backup");
  }
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (std::string& word : words) {
    arguments.push_back(word.data());
  }
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t child = 0;
  const int failed = posix_spawn(&child, "/proc/self/exe", &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (failed != 0) {
    throw Failure(Failure::Kind::System, "the command cannot be run: " + std::generic_category().message(failed));
  }
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) {
      throw Failure(Failure::Kind::System, "the command was lost: " + std::generic_category().message(errno));
    }
  }
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) {
    return;
  }
  const int code = WIFEXITED(status) ? WEXITSTATUS(status) : static_cast<int>(ExitStatus::Failed);
  throw Failure(code == static_cast<int>(ExitStatus::Refused) ? Failure::Kind::Refused
                : code == static_cast<int>(ExitStatus::Usage) ? Failure::Kind::Input
                                                              : Failure::Kind::System,
                "the command was not done on the copy, so nothing is compared");
}

ExitStatus RunWhatIf(const Context& context, const ReplayOptions& options) {
  static const std::set<std::string> nouns = {"user", "group", "filter", "import", "restore"};
  if (nouns.count(options.command.front()) == 0) {
    throw Failure(Failure::Kind::Input, "COMMAND: " + Quoted(options.command.front()) +
                                            " changes no users, groups or filters; begin with user, group, filter, "
                                            "import or restore");
  }
  ProgressBar progress;
  Database database(context.DatabaseFile(), Database::Access::Read);
  // Removed, whatever way this ends: it is never given its name.
  const NewFile copy((std::filesystem::temp_directory_path() / "perenna-access-what-if.db").string(),
                     NewFile::Existing::Replace, "");
  CopyTo(database, copy.WorkName(), progress);
  Database unchanged(copy.WorkName(), Database::Access::Read);
  Policy before(unchanged);
  RunOn(copy.WorkName(), options.command);
  Policy after(unchanged);
  RequestLog log(options.log, progress);
  const ReplayReport report = Compare(log, LoggedTargetsOf(context.Directory()), before, after);
  progress.Clear();
  return Finish(context, report);
}

} // namespace

void AddReplayCommands(CLI::App& app, Context& context) {
  const std::string log = "A decision log of the host, or an access log of nginx in its \"combined\" form; - for "
                          "standard input";
  CLI::App& replay = AddCommand(
      app, "replay",
      "Judge the requests of a log anew: which verdicts are different now, and by which filter?\n"
      "With --config, targets are seen as the host sees them (\"Target\", \"TargetAllows\"); else by their path. Exit "
      "status 1: some are different.",
      "perenna-access replay /var/log/perenna-access/decisions.log");
  auto replay_options = std::make_shared<ReplayOptions>();
  replay.add_option("LOG", replay_options->log, log)->required()->type_name("FILE");
  context.OnRun(replay, [&context, replay_options] { return RunReplay(context, *replay_options); });

  CLI::App& what_if =
      AddCommand(app, "what-if",
                 "Which logged requests would a change let through, or keep out?\n"
                 "Runs a changing command of this tool on a private copy of the directory and judges the requests of "
                 "the log by both; the directory stays as it is. Exit status 1: some would be judged otherwise.",
                 "perenna-access what-if --log decisions.log -- filter delete readers Allow GET '^/articles'");
  auto options = std::make_shared<ReplayOptions>();
  what_if.add_option("--log", options->log, log)->required()->type_name("FILE");
  what_if
      .add_option("COMMAND", options->command, "After --: user, group, filter, import or restore with its arguments")
      ->required()
      ->type_name("WORD");
  context.OnRun(what_if, [&context, options] { return RunWhatIf(context, *options); });
}

} // namespace Tool
