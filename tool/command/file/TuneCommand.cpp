#include "tool/command/Commands.h"

#include <iostream>
#include <memory>

#include "directory/file/Tune.h"
#include "directory/replica/ReplicaRow.h"
#include "tool/DirectoryNames.h"

namespace Tool {

namespace {

struct TuneOptions {
  bool dry_run = false;
  bool undo = false;
};

long long FileBytes(Database& database) {
  return database.Number("PRAGMA page_count") * database.Number("PRAGMA page_size");
}

std::string InThePast(const std::string& change) {
  return change == "drop" ? "dropped" : change == "set" ? "set" : change + "d";
}

/// What is to be done, or what was.
void PrintSteps(const std::vector<TuneStep>& steps, bool done) {
  for (const TuneStep& step : steps) {
    const std::string verb = (done ? InThePast(step.change) : step.change) + ' ' +
                             (step.change == "set" ? "journal mode to" : step.what) + ' ';
    std::cout << verb << Shown(step.name) << ": " << step.why << ".\n";
    for (const std::string& statement : step.statements) {
      std::cout << "    " << Shown(statement) << '\n';
    }
  }
}

ExitStatus RunTune(const Context& context, const TuneOptions& options) {
  const std::string file = context.DatabaseFile();
  std::vector<TuneStep> steps;
  long long before = 0;
  long long after = 0;
  {
    Database database(file, options.dry_run ? Database::Access::Read : Database::Access::Write);
    if (options.undo && ReadReplicaRow(database)) {
      throw Failure(Failure::Kind::Refused, Quoted(file) + " is a replica, which stays tuned");
    }
    steps = options.undo ? StepsToUndo(database) : StepsToTune(database);
    before = after = FileBytes(database);
    if (!options.dry_run && !steps.empty()) {
      options.undo ? Undo(database, steps) : Tune(database, steps);
      after = FileBytes(database);
    }
  }
  if (!options.dry_run && !options.undo && !steps.empty()) {
    CheckWriteAheadLog(file);
  }
  if (!context.WantsJson()) {
    PrintSteps(steps, !options.dry_run);
  }
  if (context.WantsJson()) {
    Json changes = Json::array();
    for (const TuneStep& step : steps) {
      changes.push_back(step.ToJson());
    }
    PrintJson({{"database", JsonText(file)},
               {"done", !options.dry_run},
               {"changes", std::move(changes)},
               {"bytes_before", before},
               {"bytes_after", after}});
  } else if (steps.empty()) {
    std::cout << (options.undo ? "There is nothing of tune's to take back.\n" : "The file is tuned already.\n");
  } else if (options.dry_run) {
    std::cout << "Nothing was changed: this was a dry run.\n";
  } else {
    std::cout << "Done: " << Count(steps.size(), "change") << "; the file went from " << before << " to " << after
              << " bytes.\n";
  }
  return ExitStatus::Done;
}

} // namespace

void AddTuneCommand(CLI::App& app, Context& context) {
  CLI::App& tune =
      AddCommand(app, "tune",
                 "Speed up a large directory\n"
                 "Adds indexes, statistics and write-ahead logging. What the server answers stays the same, and the "
                 "file stays readable for every version of it.",
                 "perenna-access tune --dry-run\n"
                 "  perenna-access tune");
  auto options = std::make_shared<TuneOptions>();
  tune.add_flag("--dry-run", options->dry_run, "Print what would be changed, and change nothing");
  tune.add_flag("--undo", options->undo, "Take back what tune made; only while no other program has the file open");
  context.OnRun(tune, [&context, options] { return RunTune(context, *options); });
}

} // namespace Tool
