#pragma once

#include <CLI/CLI.hpp>

namespace Tool {

// Checks of single values, made when the command line is read.

/// Accepts any text but the empty one, which a script passes when its variable is not set.
CLI::Validator NotEmpty();

/// Accepts what the module accepts as the id of a group.
CLI::Validator GroupId();

/// Accepts whole numbers from 0 up.
CLI::Validator WholeNumber();

} // namespace Tool
