#pragma once

#include "directory/Failure.h"
#include "tool/DirectoryNames.h"

namespace Tool {

/// What the process tells its caller.
enum class ExitStatus : int {
  Done = 0,         ///< done, or allowed
  Refused = 1,      ///< refused, not found, taken, or findings to look at
  Usage = 2,        ///< wrong usage or input
  Failed = 3,       ///< the database or the system failed
  Interrupted = 130 ///< by Ctrl-C at a prompt, as a shell has it: 128 + SIGINT
};

inline ExitStatus StatusOf(const Failure& failure) noexcept {
  switch (failure.What()) {
  case Failure::Kind::Refused:
    return ExitStatus::Refused;
  case Failure::Kind::Input:
    return ExitStatus::Usage;
  case Failure::Kind::System:
    break;
  }
  return ExitStatus::Failed;
}

/// The failure, with what the tool can do about it.
inline std::string TextOf(const Failure& failure) {
  const bool missing = dynamic_cast<const NoDatabase*>(&failure) != nullptr;
  return failure.what() + std::string(missing ? "; \"perenna-access --database FILE init\" creates one" : "");
}

} // namespace Tool
