#include "tool/command/Commands.h"

#include <iostream>
#include <memory>

#include "tool/cli/help/Manual.h"

namespace Tool {

namespace {

constexpr const char* ProgramPage = "perenna-access";
constexpr const char* ConfigurationPage = "perenna-access.json";
constexpr const char* HostPage = "perenna-access-host";

} // namespace

void AddManualCommand(CLI::App& app, Context& context) {
  CLI::App& manual = AddCommand(app, "manual", "Print a manual page",
                                "perenna-access manual | man -l -\n"
                                "  perenna-access manual perenna-access.json | man -l -");
  auto page = std::make_shared<std::string>(ProgramPage);
  manual.add_option("PAGE", *page, "The commands, the configuration of the host, or the host as a service")
      ->check(CLI::IsMember({ProgramPage, ConfigurationPage, HostPage}))
      ->capture_default_str();
  context.OnRun(manual, [&app, page] {
    std::cout << (*page == ConfigurationPage ? ConfigurationManual(app.version())
                  : *page == HostPage        ? HostManual(app.version())
                                             : Manual(app));
    return ExitStatus::Done;
  });
}

} // namespace Tool
