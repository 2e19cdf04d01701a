#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "directory/pattern/Automaton.h"
#include "directory/text/Text.h"

namespace AccessDirectory {

/// Which targets a host asks about: those whose path is in normal form (docs/host.md). A value that the host's
/// configuration is turned into.
struct TargetRules {
  bool with_query = false;         ///< the path and the query; else the path alone
  std::vector<std::string> allows; ///< ";" and escapes such as "%2F" that paths may hold all the same
  /// The host's own verdict on one target, which every witness is put before. None: all that the language holds.
  std::function<bool(const std::string& target)> admits;
};

/// The language of those targets. With "%25" among what is allowed it may hold more: what it decodes to in the end is
/// left to `TargetRules::admits`.
Automaton TargetLanguage(const TargetRules& rules);

/// The targets whose path is in the language, whatever their query: `paths` has no "?".
Automaton WithAnyQuery(const Automaton& paths);

/// What statements about all targets are about: "all paths in normal form", "all paths and queries in normal form, with
/// \";\" allowed".
std::string TargetsText(const TargetRules& rules);
/// {"part": "path" or "path-and-query", "allows": []}.
Json TargetsJson(const TargetRules& rules);

} // namespace AccessDirectory
