#pragma once

#include <optional>
#include <string>

namespace AccessDirectory {

/// Whether an extended regular expression that compiles matches at the start of a text only: each of its alternatives
/// begins with "^". False where it takes more than reading the beginnings of the alternatives to tell.
bool IsAnchored(const std::string& pattern);

/// Anchors a pattern that is not. With `narrow`, and where every alternative begins with a slash, as a URL does, the
/// result matches at the start only; else it matches what `pattern` matches and says so: "^.*". Nothing where the
/// pattern cannot be rewritten safely.
std::optional<std::string> Anchored(const std::string& pattern, bool narrow);

} // namespace AccessDirectory
