#pragma once

#include <string>
#include <vector>

#include "directory/Progress.h"

namespace AccessDirectory {

/// A user of a list to be added.
struct CsvUser {
  std::string id;
  std::vector<std::string> groups;
  std::size_t line = 0; ///< where it stands, from 1
};

/// Reads comma-separated values (RFC 4180) whose first line is "user_id" or "user_id,groups"; groups are joined by ";".
/// `name` is a file, or "-" for standard input. Throws `Failure` that names the line: malformed, another first line, no
/// user, an id that nobody could log in by, or one that stands there twice.
std::vector<CsvUser> ReadCsvUsers(const std::string& name, Progress& progress);

} // namespace AccessDirectory
