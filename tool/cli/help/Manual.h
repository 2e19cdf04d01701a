#pragma once

#include <string>

#include <CLI/CLI.hpp>

namespace Tool {

// The manual pages, for man(1).

/// perenna-access(1): the whole program, from its command line.
std::string Manual(const CLI::App& root);

/// perenna-access.json(5): every key of the configuration, from the table that the file is read with.
std::string ConfigurationManual(const std::string& version);

/// perenna-access-host(8): the host as a service.
std::string HostManual(const std::string& version);

} // namespace Tool
