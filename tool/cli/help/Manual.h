#pragma once

#include <string>

#include <CLI/CLI.hpp>

namespace Tool {

/// The manual page of the whole program, for man(1).
std::string Manual(const CLI::App& root);

} // namespace Tool
