#pragma once

#include <string>

#include "tool/cli/Context.h"

namespace Tool {

/// Asks `question` before something is removed that would be missed, when a person sits at the terminal: both standard
/// input and standard error are one, and --yes was not given. An empty question asks nothing. Throws `Failure` unless
/// the answer is yes. A script is not asked: it says what it means.
void ConfirmRemoval(const Context& context, const std::string& question);

} // namespace Tool
