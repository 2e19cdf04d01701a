#include "Bounds.h"

#include <algorithm>

#include "platform/pattern/Tree.h"

namespace Perenna::Pattern {

namespace {

constexpr std::uint32_t MaximumBound = 0x7FFF; // RE_DUP_MAX of the C library

/// The C library takes an escaped "0" or "," between braces for a plain one.
bool Take(std::string_view text, std::size_t& position, char byte) {
  const bool escaped = text.substr(position, 1) == "\\" && (byte == '0' || byte == ',');
  const std::size_t at = position + (escaped ? 1 : 0);
  if (at >= text.size() || text[at] != byte) {
    return false;
  }
  position = at + 1;
  return true;
}

bool ReadNumber(std::string_view text, std::size_t& position, std::uint32_t& number) {
  number = 0;
  for (bool any = false;; any = true) {
    char digit = '0';
    while (digit <= '9' && !Take(text, position, digit)) {
      ++digit;
    }
    if (digit > '9') {
      return any;
    }
    number = std::min(number * 10 + static_cast<std::uint32_t>(digit - '0'), MaximumBound + 1);
  }
}

} // namespace

bool ReadBounds(std::string_view text, std::size_t& position, std::uint32_t& minimum, std::uint32_t& maximum) {
  ++position;
  bool any = ReadNumber(text, position, minimum);
  maximum = minimum;
  if (Take(text, position, ',')) {
    any = true;
    if (!ReadNumber(text, position, maximum)) {
      maximum = Unbounded;
    }
  }
  return any && text.substr(position, 1) == "}" && minimum <= maximum && minimum <= MaximumBound &&
         (maximum == Unbounded || maximum <= MaximumBound);
}

} // namespace Perenna::Pattern
