#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>

namespace Tool {

/// What may come next on a command line.
struct Completions {
  bool files = false;                                     ///< the shell's own file names
  std::vector<std::pair<std::string, std::string>> words; ///< with a description, which may be empty
};

/// The ids that begin with a text: of users if the kind is "USER", of groups if it is "GROUP".
using IdSource = std::function<std::vector<std::string>(const std::string& kind, const std::string& begin)>;

/// Completes the last of the words after the program's name.
Completions Complete(const CLI::App& root, std::vector<std::string> words, const IdSource& ids);

/// The words of a command line as a shell would see them, the last one as far as it goes, maybe empty; nothing is
/// expanded.
std::vector<std::string> SplitCommandLine(const std::string& line);

} // namespace Tool
