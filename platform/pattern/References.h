#pragma once

#include "Tree.h"

namespace Perenna::Pattern {

/// Why the back-references of a tree without a fault must not reach the C library, which can overrun its stack on
/// some and needs cubic time for others; null if they may.
const char* JudgeReferences(const Tree& tree);

} // namespace Perenna::Pattern
