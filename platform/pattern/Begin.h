#pragma once

#include <cstddef>
#include <string_view>

namespace Perenna::Pattern {

/// What the literal text that must follow a pattern's leading "^" tells about a text.
struct Beginning {
  /// The text begins otherwise: no match of the pattern can be in it.
  bool differs = false;
  /// As many bytes of the pattern, its "^" and what is literal, have been found as `text_bytes` of the text. "^" and
  /// the rest of the pattern match the rest of the text exactly where the pattern matches the text. 0: nothing is
  /// known.
  std::size_t pattern_bytes = 0;
  std::size_t text_bytes = 0;
};

/// Compares the beginnings of a pattern and a text, neither of which holds a NUL. Tells something only where the
/// pattern certainly compiles and is not refused for its cost, so that nothing of it is to be reported; has no "|"
/// outside of groups; and the text has no line break. Far cheaper than compiling. Throws std::bad_alloc only.
Beginning CompareBeginning(std::string_view pattern, std::string_view text);

} // namespace Perenna::Pattern
