#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <poll.h>
#include <unistd.h>

#include "directory/Failure.h"
#include "directory/Log.h"
#include "tool/cli/Arguments.h"
#include "tool/cli/Help.h"
#include "tool/cli/Suggestion.h"
#include "tool/command/Commands.h"
#include "tool/terminal/EndingSignals.h"
#include "tool/terminal/Prompt.h"

namespace {

constexpr const char* Description =
    "Administer the access database of a server: its users, groups and filters\n"
    "Users are members of groups. A filter allows or denies the members of a group one HTTP method on the URLs that a "
    "pattern matches. Among the filters that apply to a request, one Deny refuses it; otherwise one Allow grants it; "
    "otherwise it is refused.";

constexpr const char* Footer = "Exit status:\n"
                               "  0  done, or allowed\n"
                               "  1  refused, not found, taken, or findings to look at\n"
                               "  2  wrong usage or input\n"
                               "  3  the database or the system failed\n"
                               "\n"
                               "Environment:\n"
                               "  PERENNA_ACCESS_DATABASE  the database, unless --database or --config names it\n"
                               "  NO_COLOR                 no colours, unless it is empty";

void Describe(CLI::App& app) {
  app.name("perenna-access");
  app.description(Description);
  app.set_help_flag("-h,--help", "Show this help");
  app.set_version_flag("--version", "perenna-access " PERENNA_VERSION, "Show the version");
  app.formatter(std::make_shared<Tool::HelpFormatter>());
  app.require_subcommand(1);
  app.fallthrough();
}

/// Runs what the command line asks for. Errors of usage are explained on standard error.
Tool::ExitStatus Run(int argc, char** argv) {
  CLI::App app;
  Tool::Context context;
  Describe(app);
  context.AddGlobalOptions(app);
  Tool::AddInitCommand(app, context);
  Tool::AddUserCommands(app, context);
  Tool::AddGroupCommands(app, context);
  Tool::AddFilterCommands(app, context);
  Tool::AddCheckCommands(app, context);
  Tool::AddLintCommand(app, context);
  Tool::AddTuneCommand(app, context);
  Tool::AddExportCommand(app, context);
  Tool::AddImportCommand(app, context);
  Tool::AddCompletionCommands(app, context);
  Tool::AddHelpCommand(app, context);
  Tool::AddManualCommand(app, context);
  app.footer(Footer); // the subcommands have their own
  Tool::TakeLiterally(app);
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  try {
    app.parse(Tool::ArgumentsToParse(arguments));
  } catch (const CLI::Success& asked_for_help) {
    app.exit(asked_for_help);
    return Tool::ExitStatus::Done;
  } catch (const CLI::ParseError& error) {
    std::cerr << Tool::Explain(app, error, arguments);
    return Tool::ExitStatus::Usage;
  }
  AccessDirectory::TheLog().SetVerbose(context.IsVerbose());
  return context.Run();
}

/// Whether standard output leads to a pipe or socket that nobody reads any more.
bool ReaderIsGone() {
  pollfd output = {STDOUT_FILENO, POLLOUT, 0};
  return poll(&output, 1, 0) == 1 && (output.revents & (POLLERR | POLLHUP)) != 0;
}

/// Runs the command and writes all of its output. A reader that has gone away wants no explanation; a full disk needs
/// one. In both cases nothing was answered, so the status is none that an answer has.
Tool::ExitStatus RunAndFlush(int argc, char** argv) {
  std::cout.exceptions(std::ios::badbit);
  try {
    const Tool::ExitStatus status = Run(argc, argv);
    std::cout.flush();
    return status;
  } catch (const std::ios_base::failure&) {
    std::cout.exceptions(std::ios::goodbit);
    if (!ReaderIsGone()) {
      std::cerr << "perenna-access: the output could not be written\n";
    }
    return Tool::ExitStatus::Failed;
  }
}

} // namespace

int main(int argc, char** argv) {
  Tool::ExitStatus status = Tool::ExitStatus::Failed;
  try {
    Tool::ProtectProcess();
    Tool::RemoveUnfinishedFilesOnSignals();
    std::ios::sync_with_stdio(false);
    AccessDirectory::TheLog();
    status = RunAndFlush(argc, argv);
  } catch (const AccessDirectory::Failure& failure) {
    std::cout.exceptions(std::ios::goodbit);
    std::cout.flush(); // what was done before the failure comes first
    std::cerr << "perenna-access: " << failure.what() << '\n';
    status = Tool::StatusOf(failure);
  } catch (const std::bad_alloc&) {
    std::cerr << "perenna-access: memory ran out\n";
  } catch (const std::exception& error) {
    std::cerr << "perenna-access: " << error.what() << '\n';
  }
  return static_cast<int>(status);
}
