#include "tool/terminal/EndingSignals.h"

#include <csignal>

#include "directory/file/NewFile.h"
#include "tool/DirectoryNames.h"

namespace Tool {

void RemoveUnfinishedFilesOnSignals() noexcept {
  struct sigaction action = {};
  action.sa_handler = [](int signal) {
    NewFile::RemoveUnfinished();
    static_cast<void>(raise(signal)); // the default action is back, see below: the caller sees what ended the process
  };
  action.sa_flags = static_cast<int>(SA_RESETHAND | SA_NODEFER);
  for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM}) {
    struct sigaction before = {};
    if (sigaction(signal, nullptr, &before) == 0 && before.sa_handler != SIG_IGN) { // as under nohup
      sigaction(signal, &action, nullptr);
    }
  }
}

} // namespace Tool
