#pragma once

#include <string_view>

namespace Perenna::Pattern {

/// Sees at a glance that a pattern, up to its end, cannot be costly: short, loops over single characters only, few of
/// them, with next to nothing behind them that could be either this or that. Its states are then few, whatever the
/// text. Most patterns of filters are so. False says nothing. Thread-safe; throws nothing.
bool IsPlain(std::string_view pattern);

} // namespace Perenna::Pattern
