#include "tool/command/Commands.h"

#include <memory>

#include "directory/policy/AccessRulesReader.h"
#include "tool/command/question/Proofs.h"
#include "tool/terminal/ProgressBar.h"

namespace Tool {

namespace {

struct DiffOptions {
  std::string before;
  std::string after;
  std::string fail_on;
  std::string target;
};

ExitStatus Diff(const Context& context, const DiffOptions& options) {
  const TargetRules rules = RulesFor(context, options.target);
  AccessChanges changes;
  {
    ProgressBar progress;
    Patterns patterns;
    const AccessRules before = ReadAccessRules(options.before, patterns, progress);
    const AccessRules after = ReadAccessRules(options.after, patterns, progress);
    Solver solver(patterns, rules);
    changes = CompareAccess(before, after, patterns, solver, progress);
  }
  if (context.WantsJson()) {
    Json json = {{"targets", TargetsJson(rules)}};
    json.update(changes.ToJson());
    PrintJson(json);
  } else {
    PrintAccessChanges(changes, rules);
  }
  return StatusOf(changes, options.fail_on);
}

} // namespace

void AddDiffCommand(CLI::App& app, Context& context) {
  CLI::App& command = AddCommand(
      app, "diff",
      "Tell for every user what another directory allows and refuses otherwise, on all targets\n"
      "Users who have the same groups are taken together. For each method there is a target that becomes allowed and "
      "one that becomes refused, or the certainty that nothing changes. What could not be found out is shown as \"?\" "
      "with its reason. Exit status 1: something is found that --fail-on names.",
      "perenna-access export before.json\n"
      "  perenna-access diff before.json access.db --fail-on granted");
  auto options = std::make_shared<DiffOptions>();
  command.add_option("BEFORE", options->before, "A database, or a file that \"export\" wrote; - for standard input")
      ->type_name("FILE")
      ->required();
  command.add_option("AFTER", options->after, "The other one")->type_name("FILE")->required();
  AddFailOnOption(command, options->fail_on);
  AddTargetOption(command, options->target);
  context.OnRun(command, [&context, options] { return Diff(context, *options); });
}

} // namespace Tool
