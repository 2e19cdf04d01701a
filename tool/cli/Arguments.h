#pragma once

#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace Tool {

// The parser reads "[a,b]" as two values where a list of arguments is expected. Here it is one id, URL or pattern like
// any other: deleting the user "[a]" must not delete the user "a". Arguments that begin with a bracket are marked
// before they are parsed, and every option removes the mark again.

/// The arguments for `CLI::App::parse`, marked and in the order that it wants: the last first.
std::vector<std::string> ArgumentsToParse(const std::vector<std::string>& arguments);

/// Lets all options and arguments of the command and its subcommands remove the mark.
void TakeLiterally(CLI::App& command);

} // namespace Tool
