#pragma once

#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace Tool {

/// What to print when the command line cannot be understood: the error, the subcommand or option that was probably
/// meant, and where the help is. Without a line end after the last line.
std::string Explain(const CLI::App& app, const CLI::ParseError& error, const std::vector<std::string>& arguments);

/// Says that `word` is not a subcommand of `command`, and which was probably meant.
std::string NotACommand(const CLI::App& command, const std::string& word);

} // namespace Tool
