#pragma once

#include <string>

#include <CLI/CLI.hpp>

namespace Tool {

/// The help of a command, no line longer than 100 columns.
class HelpFormatter : public CLI::FormatterBase {
public:
  std::string make_help(const CLI::App* command, std::string name, CLI::AppFormatMode mode) const override;
};

/// The list of subcommands as the help of `command` shows it.
std::string SubcommandList(const CLI::App& command);

} // namespace Tool
