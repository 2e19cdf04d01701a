#pragma once

#include <optional>
#include <string_view>

#include "platform/pattern/Tree.h"

namespace Perenna::Pattern {

/// Reads the bracket list whose "[" stands before `position`, and moves `position` behind its "]". Nothing when it is
/// malformed; `position` is then where that shows.
std::optional<CharacterSet> ReadBracketList(std::string_view text, std::size_t& position);

/// The bytes of a class such as "alpha" in the C locale; nothing when there is no such class.
std::optional<CharacterSet> CharacterClass(std::string_view name);

} // namespace Perenna::Pattern
