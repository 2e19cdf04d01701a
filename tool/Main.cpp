#include <cerrno>
#include <iostream>
#include <memory>
#include <set>
#include <string>
#include <system_error>
#include <vector>

#include <poll.h>
#include <unistd.h>

#include "directory/Failure.h"
#include "directory/Log.h"
#include "tool/cli/AuditTrail.h"
#include "tool/cli/Arguments.h"
#include "tool/cli/CommandTree.h"
#include "tool/cli/ErrorReport.h"
#include "tool/cli/help/Help.h"
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
                               "  0    done, or allowed\n"
                               "  1    refused, not found, taken, or findings to look at\n"
                               "  2    wrong usage or input\n"
                               "  3    the database or the system failed\n"
                               "  130  interrupted at a prompt\n"
                               "\n"
                               "Environment:\n"
                               "  PERENNA_ACCESS_DATABASE  the database, unless --database or --config names it\n"
                               "  NO_COLOR                 no colours, unless it is empty or --color says otherwise\n"
                               "  TERM                     no colours where it is \"dumb\"\n"
                               "\n"
                               "Files:\n"
                               "  FILE                the database, an SQLite file\n"
                               "  FILE-wal, FILE-shm  beside it while a tuned one is open: they hold what was changed "
                               "last\n"
                               "\n"
                               "See also:\n"
                               "  regex(7)    how a pattern is written\n"
                               "  openssl(1)  certificates and their thumbprints\n"
                               "  sqlite3(1)  the database file";

void Describe(CLI::App& app) {
  app.name("perenna-access");
  app.description(Description);
  app.set_help_flag("-h,--help", "Show this help");
  app.set_version_flag("--version", "perenna-access " PERENNA_VERSION, "Show the version");
  app.formatter(std::make_shared<Tool::HelpFormatter>());
  app.require_subcommand(1);
  app.fallthrough();
}

/// Whether the command is one that changes the directory, and is to leave a trail. What the host changes it records
/// itself.
bool Changes(const CLI::App& app) {
  static const std::set<std::string> nouns = {"init", "user", "group", "filter", "import", "restore"};
  static const std::set<std::string> questions = {"list", "show", "access", "verify", "test"};
  const CLI::App* const noun = app.get_subcommands().front();
  const auto verbs = noun->get_subcommands();
  return nouns.count(noun->get_name()) != 0 && (verbs.empty() || questions.count(verbs.front()->get_name()) == 0);
}

/// The whole program: the command line as the parser knows it, and what the commands share.
class Program {
public:
  Program() {
    Describe(m_App);
    m_Context.AddGlobalOptions(m_App);
    Tool::AddInitCommand(m_App, m_Context);
    Tool::AddUserCommands(m_App, m_Context);
    Tool::AddGroupCommands(m_App, m_Context);
    Tool::AddFilterCommands(m_App, m_Context);
    Tool::AddCheckCommands(m_App, m_Context);
    Tool::AddWhoCommand(m_App, m_Context);
    Tool::AddReplayCommands(m_App, m_Context);
    Tool::AddLintCommand(m_App, m_Context);
    Tool::AddDiffCommand(m_App, m_Context);
    Tool::AddProveCommand(m_App, m_Context);
    Tool::AddMatrixCommand(m_App, m_Context);
    Tool::AddTuneCommand(m_App, m_Context);
    Tool::AddServeCommand(m_App, m_Context);
    Tool::AddProxyCheckCommand(m_App, m_Context);
    Tool::AddSyncCommands(m_App, m_Context);
    Tool::AddExportCommand(m_App, m_Context);
    Tool::AddImportCommand(m_App, m_Context);
    Tool::AddBackupCommands(m_App, m_Context);
    Tool::AddAuditCommands(m_App, m_Context);
    Tool::AddCompletionCommands(m_App, m_Context);
    Tool::AddManualCommand(m_App, m_Context);
    Tool::AddHelpCommand(m_App, m_Context);
    m_App.footer(Footer); // the subcommands have their own
    Tool::TakeLiterally(m_App);
  }

  /// Runs what the command line asks for. Errors of usage are explained on standard error.
  Tool::ExitStatus Run(const std::vector<std::string>& arguments) {
    try {
      m_App.parse(Tool::ArgumentsToParse(arguments));
    } catch (const CLI::Success& asked_for_help) {
      m_App.exit(asked_for_help);
      return Tool::ExitStatus::Done;
    } catch (const CLI::ParseError& error) {
      if (Tool::IsGiven(m_App, arguments, "--json")) {
        m_Errors = Tool::ErrorForm::Json;
      }
      Report(Tool::ExitStatus::Usage, Tool::Explain(m_App, error, arguments));
      return Tool::ExitStatus::Usage;
    }
    m_Errors = m_Context.Errors();
    if (m_Context.IsVerbose()) {
      AccessDirectory::TheLogSink().SetFollower([](const std::string& line) {
        std::cerr << "perenna-access: log: " << AccessDirectory::Shown(line, AccessDirectory::Backslash::Kept) << '\n';
      });
    }
    if (!Changes(m_App)) {
      return m_Context.Run();
    }
    Tool::AuditTrail audit(m_Context.AuditFile());
    try {
      const Tool::ExitStatus status = m_Context.Run();
      audit.Write(arguments, status);
      return status;
    } catch (const AccessDirectory::Failure& failure) { // part of it may be done
      audit.Write(arguments, Tool::StatusOf(failure));
      throw;
    }
  }

  void Report(Tool::ExitStatus status, const std::string& message) const {
    Tool::ReportError(m_Errors, status, message);
  }

private:
  CLI::App m_App;
  Tool::Context m_Context;
  Tool::ErrorForm m_Errors = Tool::ErrorForm::Text;
};

/// Whether standard output leads to a pipe or socket that nobody reads any more.
bool ReaderIsGone() {
  pollfd output = {STDOUT_FILENO, POLLOUT, 0};
  return poll(&output, 1, 0) == 1 && (output.revents & (POLLERR | POLLHUP)) != 0;
}

/// Runs the command and writes all of its output. A reader that has gone away wants no explanation; a full disk needs
/// one. In both cases nothing was answered, so the status is none that an answer has.
Tool::ExitStatus RunAndFlush(Program& program, const std::vector<std::string>& arguments) {
  std::cout.exceptions(std::ios::badbit);
  try {
    const Tool::ExitStatus status = program.Run(arguments);
    std::cout.flush();
    return status;
  } catch (const std::ios_base::failure&) {
    const int reason = errno; // of the write that failed
    std::cout.exceptions(std::ios::goodbit);
    if (!ReaderIsGone()) {
      program.Report(Tool::ExitStatus::Failed,
                     "the output could not be written: " + std::generic_category().message(reason));
    }
    return Tool::ExitStatus::Failed;
  }
}

/// The same; whatever ends it early is reported.
Tool::ExitStatus RunToAnEnd(Program& program, const std::vector<std::string>& arguments) {
  Tool::ExitStatus status = Tool::ExitStatus::Failed;
  std::string message;
  try {
    return RunAndFlush(program, arguments);
  } catch (const Tool::Cancelled&) {
    status = Tool::ExitStatus::Interrupted;
    message = "cancelled";
  } catch (const AccessDirectory::Failure& failure) {
    status = Tool::StatusOf(failure);
    message = Tool::TextOf(failure);
  } catch (const std::bad_alloc&) {
    message = "memory ran out";
  } catch (const std::exception& error) {
    message = error.what();
  }
  std::cout.exceptions(std::ios::goodbit);
  std::cout.flush(); // what was done before the failure comes first
  program.Report(status, message);
  return status;
}

} // namespace

int main(int argc, char** argv) {
  Tool::ExitStatus status = Tool::ExitStatus::Failed;
  try {
    Tool::ProtectProcess();
    Tool::RemoveUnfinishedFilesOnSignals();
    std::ios::sync_with_stdio(false);
    AccessDirectory::TheLogSink();
    Program program;
    status = RunToAnEnd(program, {argv + 1, argv + argc});
  } catch (const std::exception& error) {
    std::cerr << "perenna-access: " << error.what() << '\n';
  }
  return static_cast<int>(status);
}
