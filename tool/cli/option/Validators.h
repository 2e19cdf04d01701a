#pragma once

#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace Tool {

// Checks of single values, made when the command line is read.

/// Accepts any text but the empty one, which a script passes when its variable is not set.
CLI::Validator NotEmpty();

/// Accepts what the module accepts as the id of a group.
CLI::Validator GroupId();

/// Accepts whole numbers from 0 up.
CLI::Validator WholeNumber();

/// For a command that replaces a set: throws `Failure` unless either ids were named, or --none. An empty list alone may
/// be a script's variable that is not set.
void RequireSet(const std::vector<std::string>& ids, bool none, const std::string& argument);

} // namespace Tool
