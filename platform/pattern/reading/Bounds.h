#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace Perenna::Pattern {

/// Reads the bounds "{n}", "{n,}", "{,m}" or "{n,m}" of a repetition, from the "{" at `position` to the "}", where it
/// stops. `maximum` becomes `Unbounded` when there is none. False when they are malformed or too great.
bool ReadBounds(std::string_view text, std::size_t& position, std::uint32_t& minimum, std::uint32_t& maximum);

} // namespace Perenna::Pattern
