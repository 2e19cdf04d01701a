#pragma once

#include <cstdint>
#include <vector>

#include "platform/pattern/Tree.h"

namespace Perenna::Pattern {

/// How many nodes of a network a part of a tree becomes, each repetition written out; at most `MaximumElements` + 1.
std::vector<std::uint32_t> ExpandedSizes(const Tree& tree);

} // namespace Perenna::Pattern
