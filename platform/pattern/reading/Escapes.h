#pragma once

#include <optional>

#include "platform/pattern/Tree.h"

namespace Perenna::Pattern {

/// What a backslash before a byte makes of it outside of bracket lists, in the GNU C library: a condition ("\b"), or
/// bytes of which it matches one ("\w"). Nothing when the byte stands for itself.
std::optional<Assertion> EscapedAssertion(char byte);
std::optional<CharacterSet> EscapedSet(char byte);

} // namespace Perenna::Pattern
