#include <cerrno>
#include <iostream>
#include <vector>

#include "Commands.h"
#include "Failure.h"
#include "Log.h"
#include "Secret.h"
#include "Suggestion.h"

namespace {

constexpr std::size_t HelpColumn = 32;

void Describe(CLI::App& app) {
  app.name("perenna-access");
  app.description("Administers the access database of a server: its users, groups and filters.");
  app.footer("Exit status: 0 done or allowed; 1 refused, not found or findings; 2 wrong usage or input; 3 database or "
             "system failure.\n"
             "\"perenna-access COMMAND --help\" explains a command.");
  app.set_version_flag("--version", "perenna-access " PERENNA_VERSION);
  app.get_formatter()->column_width(HelpColumn);
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
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& asked_for_help) {
    app.exit(asked_for_help);
    return Tool::ExitStatus::Done;
  } catch (const CLI::ParseError& error) {
    std::cerr << Tool::Explain(app, error, std::vector<std::string>(argv + 1, argv + argc));
    return Tool::ExitStatus::Usage;
  }
  Tool::TheLog().SetVerbose(context.IsVerbose());
  return context.Run();
}

/// Writes what is left of the output. A reader that has gone away is none of our business; a full disk is.
Tool::ExitStatus FlushOutput(Tool::ExitStatus status) {
  errno = 0;
  std::cout.flush();
  if (!std::cout && errno != EPIPE) {
    std::cerr << "perenna-access: the output could not be written\n";
    return Tool::ExitStatus::Failed;
  }
  return status;
}

} // namespace

int main(int argc, char** argv) {
  Tool::ExitStatus status = Tool::ExitStatus::Failed;
  try {
    Tool::ProtectProcess();
    std::ios::sync_with_stdio(false);
    Tool::TheLog();
    status = Run(argc, argv);
  } catch (const Tool::Failure& failure) {
    std::cerr << "perenna-access: " << failure.what() << '\n';
    status = failure.Status();
  } catch (const std::bad_alloc&) {
    std::cerr << "perenna-access: memory ran out\n";
  } catch (const std::exception& error) {
    std::cerr << "perenna-access: " << error.what() << '\n';
  }
  return static_cast<int>(FlushOutput(status));
}
