#pragma once

#include <string_view>

namespace Perenna::Pattern {

/// Whether no match of the pattern can be in the text, which holds no NUL, as seen from the literal text that must
/// follow the pattern's "^": true only where the pattern certainly compiles, is not refused for its cost, has no "|"
/// outside of groups, and the text has no line break. False says nothing. Far cheaper than compiling. Throws
/// std::bad_alloc only.
bool CannotBegin(std::string_view pattern, std::string_view text);

} // namespace Perenna::Pattern
