#pragma once

#include <string>
#include <vector>

namespace Sync {

/// The section "Sync" of a configuration file: where the store is, and who this machine is to it.
struct Settings {
  std::vector<std::string> endpoints; ///< "https://HOST:PORT", one a member or a proxy in front of it; never empty
  std::string certificate_authority;  ///< PEM file; empty: the system's
  std::string certificate;            ///< PEM file of this machine; empty: none
  std::string key;
  std::string user; ///< of the store's authentication; empty: none
  std::string password_file;
  std::string prefix = "/perenna/"; ///< of every key
};

/// Reads the section; file names are absolute. Throws `AccessDirectory::Failure` of kind Input that names the file, the
/// key, its value and what is accepted, also where no member is given.
Settings ReadSettings(const std::string& configuration_file);

} // namespace Sync
