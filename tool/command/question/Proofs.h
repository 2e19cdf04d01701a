#pragma once

#include <CLI/CLI.hpp>

#include "directory/pattern/Targets.h"
#include "directory/policy/AccessChange.h"
#include "tool/cli/Context.h"
#include "tool/terminal/Table.h"

namespace Tool {

// What the commands have in common that speak of all targets.

/// Gives the command --target, for where no configuration says which part of a target filters see.
void AddTargetOption(CLI::App& command, std::string& part);

/// The targets that the configuration, or else the option, speaks of. Throws `Failure`, also for both.
TargetRules RulesFor(const Context& context, const std::string& part);

/// Gives the command --fail-on, for what must not change.
CLI::Option& AddFailOnOption(CLI::App& command, std::string& change);

/// Refused where something changes that must not; what is unknown may be that.
ExitStatus StatusOf(const AccessChanges& changes, const std::string& fail_on);

/// A target; "-" for none; "?" for what is unknown.
Cell AnswerCell(const Answer& answer, Colour of_witness);

/// "GET, HEAD".
std::string MethodsText(const std::vector<Perenna::Method_t>& methods);

/// What becomes allowed and what refused, as a table, and then what was not found out and a sentence about the whole.
void PrintAccessChanges(const AccessChanges& changes, const TargetRules& rules);

} // namespace Tool
