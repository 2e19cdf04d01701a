#pragma once

#include <string>
#include <vector>

#include "directory/pattern/Targets.h"

namespace Host {

/// What the host asks the directory about, for statements about all targets: paths, or paths with their queries, in the
/// form that `TargetForm` takes with the spellings that it allows. Throws as its constructor.
AccessDirectory::TargetRules TargetRulesOf(bool with_query, const std::vector<std::string>& allows);

} // namespace Host
