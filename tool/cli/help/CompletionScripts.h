#pragma once

#include <string>
#include <vector>

namespace Tool {

/// The shells that there are scripts for.
std::vector<std::string> CompletionShells();

/// The script for one of them. It asks the program itself, so it suits every version of it.
std::string CompletionScript(const std::string& shell);

} // namespace Tool
