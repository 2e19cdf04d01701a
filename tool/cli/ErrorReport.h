#pragma once

#include <optional>
#include <string>

#include "tool/ExitStatus.h"

namespace Tool {

/// How errors are written to standard error.
enum class ErrorForm {
  Text, ///< "perenna-access: MESSAGE"
  Json  ///< {"error": {"kind", "status", "message"}} in one line; "line" too, if it is about a line of the input
};

/// Writes one error. The message may have more lines with hints; it holds no secret and nothing that drives a terminal.
void ReportError(ErrorForm form, ExitStatus status, const std::string& message,
                 std::optional<std::size_t> line = std::nullopt);

/// Writes a warning for people: "perenna-access: warning: MESSAGE".
void Warn(const std::string& message);

} // namespace Tool
