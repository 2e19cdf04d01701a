#pragma once

#include <functional>
#include <string>
#include <vector>

#include "directory/text/Text.h"
#include "host/Configuration.h"

namespace Host {

/// A key of the configuration file. The table of them is what the file is checked against, and what the manual's list
/// of keys is made from.
struct ConfigurationKey {
  std::string section;  ///< "Host.Proxy"
  std::string name;     ///< "Headers"
  std::string fallback; ///< its value when it is left out, as JSON; empty: it must be given
  std::string accepted; ///< "true or false": ends "is not accepted: give ..."
  std::string summary;  ///< one line of documentation
  /// Takes a value over into the configuration, relative file names as absolute ones; false when it is not accepted.
  std::function<bool(Configuration&, const AccessDirectory::Json& value)> store;

  std::string Path() const { return section + "." + name; }
};

/// In the order of the documentation; the sections that contain others come before them.
const std::vector<ConfigurationKey>& ConfigurationKeys();

} // namespace Host
