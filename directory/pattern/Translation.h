#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "directory/pattern/Automaton.h"

namespace AccessDirectory {

/// The texts that a pattern matches.
struct Translation {
  std::optional<Automaton> language;
  const char* obstacle = nullptr; ///< why there is none, in words that follow "it holds "; null where there is one
};

/// The language of the texts of one byte or more, all of them bytes of targets, in which the module finds the pattern:
/// exactly those, or nothing and the reason. A pattern that never matches has the empty language. Not translated are
/// "^" and "$" under a repetition (the C library does not keep to what they say there), "\b", "\B", "\<", "\>",
/// back-references, "[.a.]", "[=a=]", and what the module refuses for its cost (see `Perenna::Pattern::Judge`), which
/// is up to the caller: its filters put decisions in doubt.
Translation Translate(const std::string& pattern);

} // namespace AccessDirectory
