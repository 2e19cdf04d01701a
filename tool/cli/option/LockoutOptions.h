#pragma once

#include <functional>
#include <string>

#include <CLI/CLI.hpp>

#include "directory/file/Database.h"
#include "tool/cli/Context.h"
#include "tool/DirectoryNames.h"

namespace Tool {

/// The options of a change that could leave nobody who may administer.
struct LockoutOptions {
  std::string administrators; ///< the group; empty: what the configuration says
  bool force = false;

  void AddTo(CLI::App& command);

  /// Makes the change in one step; it may run several times, when others come first. Unless forced, nothing is changed,
  /// and a `Failure` is thrown, when it would delete the last user or leave no administrator who can log in. Returns
  /// what a forced change has to warn of, as a JSON array; people are warned on standard error.
  Json Apply(const Context& context, const std::function<void(Database&)>& change) const;
};

} // namespace Tool
