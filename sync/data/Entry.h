#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "directory/Directory.h"

namespace Sync {

/// One entry of the directory, as a row of its table and as a key of the store.
struct Entry {
  AccessDirectory::SectionNumber section = AccessDirectory::Users;
  std::vector<std::string> texts; ///< in the order of the section's columns
};

// Keys, after the generation: "u/USER", "g/GROUP", "m/GROUP/USER", "f/GROUP/METHOD/ACTION/PATTERN". In their parts
// every byte outside [A-Za-z0-9._-] is "%" and two upper-case hexadecimal digits (RFC 3986, 2.1), so that keys sort and
// split without a look at what they hold.

std::string KeyOf(const Entry& entry);

/// What the store keeps under the key: the columns that are no part of it, JSON, a text that is not UTF-8 as
/// {"base64": "..."}; nothing where every column is.
std::string ValueOf(const Entry& entry);

/// Reads both. Nothing, with `fault` saying why, when they are not what an entry is kept as, or hold a NUL, which no
/// row can.
std::optional<Entry> ReadEntry(std::string_view key, const std::string& value, std::string& fault);
/// The same of a key that is gone, with its value: the columns that are no part of it are empty.
std::optional<Entry> ReadEntryKey(std::string_view key, std::string& fault);

} // namespace Sync
