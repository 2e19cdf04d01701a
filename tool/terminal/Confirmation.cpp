#include "tool/terminal/Confirmation.h"

#include <unistd.h>

#include "tool/terminal/Prompt.h"

namespace Tool {

void ConfirmRemoval(const Context& context, const std::string& question) {
  const bool asks =
      !question.empty() && !context.AssumesYes() && isatty(STDIN_FILENO) == 1 && isatty(STDERR_FILENO) == 1;
  if (asks && !AskYesOrNo(question, false)) {
    throw Failure(Failure::Kind::Refused, "nothing was changed");
  }
}

} // namespace Tool
