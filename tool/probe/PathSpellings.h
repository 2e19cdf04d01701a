#pragma once

#include <string>
#include <vector>

namespace Tool {

/// Targets that some software takes for `wanted` although they are spelled in another way, or that begin like `allowed`
/// and climb from there. Both begin with "/" and have no query.
std::vector<std::string> PathSpellings(const std::string& wanted, const std::string& allowed);

} // namespace Tool
