#include "tool/cli/ErrorReport.h"

#include <iostream>

#include "directory/text/Text.h"
#include "tool/DirectoryNames.h"

namespace Tool {

namespace {

const char* Kind(ExitStatus status) noexcept {
  switch (status) {
  case ExitStatus::Done:
  case ExitStatus::Refused:
    return "refused";
  case ExitStatus::Usage:
    return "usage";
  case ExitStatus::Interrupted:
    return "interrupted";
  case ExitStatus::Failed:
    break;
  }
  return "failed";
}

} // namespace

void ReportError(ErrorForm form, ExitStatus status, const std::string& message, std::optional<std::size_t> line) {
  if (form == ErrorForm::Text) {
    std::cerr << "perenna-access: " << (line ? "line " + std::to_string(*line) + ": " : "") << message << '\n';
    return;
  }
  Json report;
  report["error"] = {{"kind", Kind(status)}, {"status", static_cast<int>(status)}, {"message", JsonText(message)}};
  if (line) {
    report["error"]["line"] = *line;
  }
  std::cerr << report.dump(-1, ' ', true) << '\n';
}

void Warn(const std::string& message) {
  std::cerr << "perenna-access: warning: " << message << '\n';
}

} // namespace Tool
