#pragma once

#include <cstddef>

#include "Alphabet.h"
#include "platform/pattern/network/Network.h"
#include "platform/pattern/Tree.h"

namespace Perenna::Pattern {

/// How far apart two places of a text must be at least for matches to begin at both, as far as what they begin with
/// tells: no match ends before that.
std::size_t DistanceOfMatches(const Tree& tree, const Network& network, const Alphabet& alphabet);

} // namespace Perenna::Pattern
