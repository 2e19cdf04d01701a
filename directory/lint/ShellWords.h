#pragma once

#include <optional>
#include <string>
#include <vector>

namespace AccessDirectory {

// Command lines to paste into a POSIX shell. They are printable ASCII, so that stored text neither drives the terminal
// that shows them nor changes on its way through one.

/// `text` as one word. Nothing when a shell cannot pass it on: it holds a NUL, ends with a line end, or is too long for
/// an argument.
std::optional<std::string> ShellWord(const std::string& text);

/// The words joined by blanks; nothing when one cannot be passed on, or when all together are too long to paste.
std::optional<std::string> ShellCommand(const std::vector<std::string>& words);

} // namespace AccessDirectory
