#include "tool/command/Commands.h"

#include <iostream>
#include <memory>

#include "directory/Directory.h"
#include "directory/policy/AccessRulesReader.h"
#include "directory/transfer/DirectoryCheck.h"
#include "directory/transfer/DirectoryDifference.h"
#include "directory/transfer/DirectoryReader.h"
#include "directory/transfer/DirectoryText.h"
#include "tool/command/DifferenceTable.h"
#include "tool/command/Proofs.h"
#include "tool/DirectoryNames.h"
#include "tool/terminal/ProgressBar.h"

namespace Tool {

namespace {

struct ImportOptions {
  std::string file;
  bool force = false;
  bool strict = false;
  bool dry_run = false;
  std::string fail_on;
};

/// Reads the file and finds everything that is wrong with it.
void ReadAndCheck(const ImportOptions& options, Progress& progress, Directory& directory, FileFindings& errors,
                  FileFindings& warnings) {
  Input input(options.file, progress);
  if (!ReadDirectory(input, directory, errors)) {
    return; // what is missing may stand in the part that could not be read
  }
  FileFindings notes;
  CheckDirectory(directory, errors, warnings, notes, progress);
  if (directory[Users].Count() == 0 && errors.Count() == 0 && !options.force) {
    errors.Add("users", "is empty: nobody could log in, or create the first user; --force imports it all the same");
  }
  if (options.strict) {
    errors.Append(warnings);
  }
  warnings.Append(notes); // to be shown, and nothing more
}

ExitStatus Refuse(const Context& context, const ImportOptions& options, const FileFindings& errors) {
  if (context.WantsJson()) {
    PrintJson({{"errors", errors.ToJson()}, {"error_count", errors.Count()}});
  } else {
    std::cerr << "perenna-access: " << (options.file == "-" ? "standard input" : Quoted(options.file)) << ": "
              << Count(errors.Count(), "error") << "; nothing was imported\n";
    errors.Print(std::cerr, "  ");
  }
  return ExitStatus::Usage;
}

/// Puts the directory in place of the stored one.
void Write(Database& database, const Directory& directory, Progress& progress) {
  Transaction transaction(database);
  ReplaceDirectory(database, directory, progress);
  transaction.Commit();
}

/// What the import would change of what users may do.
AccessChanges CompareWithStored(Database& database, const Directory& directory, const TargetRules& rules,
                                Progress& progress) {
  Patterns patterns;
  const AccessRules before = ReadAccessRules(database, patterns);
  const AccessRules after(directory, patterns);
  Solver solver(patterns, rules);
  return CompareAccess(before, after, patterns, solver, progress);
}

ExitStatus ShowDifference(const Context& context, Database& database, const Directory& directory,
                          const FileFindings& warnings, const std::string& fail_on) {
  const TargetRules rules = RulesFor(context, "");
  const Directory stored = [&database] {
    const Snapshot snapshot(database);
    return ReadStoredTexts(database);
  }();
  const DirectoryDifference difference(stored, directory);
  const AccessChanges changes = [&] {
    ProgressBar progress;
    return CompareWithStored(database, directory, rules, progress);
  }();
  if (context.WantsJson()) {
    PrintJson({{"dry_run", true},
               {"difference", difference.ToJson()},
               {"targets", TargetsJson(rules)},
               {"access", changes.ToJson()},
               {"warnings", warnings.ToJson()},
               {"warning_count", warnings.Count()}});
    return StatusOf(changes, fail_on);
  }
  PrintDifference(std::cout, difference);
  PrintAccessChanges(changes, rules);
  std::cout << Count(warnings.Count(), "warning") << (warnings.Count() == 0 ? "\n" : ":\n");
  warnings.Print(std::cout, "  ");
  std::cout << "Nothing was imported: this was a dry run.\n";
  return StatusOf(changes, fail_on);
}

ExitStatus Import(const Context& context, const ImportOptions& options) {
  Database database(context.DatabaseFile(), options.dry_run ? Database::Access::Read : Database::Access::Write);
  ProgressBar progress;
  Directory directory = EmptyDirectory();
  FileFindings errors;
  FileFindings warnings;
  ReadAndCheck(options, progress, directory, errors, warnings);
  if (errors.Count() > 0) {
    progress.Clear();
    return Refuse(context, options, errors);
  }
  if (options.dry_run) {
    progress.Clear();
    return ShowDifference(context, database, directory, warnings, options.fail_on);
  }
  Write(database, directory, progress);
  progress.Clear();

  const SectionCounts counts = CountsOf(directory);
  if (context.IsVerbose() && !context.WantsJson()) {
    warnings.Print(std::cerr, "perenna-access: warning: ");
  }
  context.Report(
      "Imported " + CountsText(counts) + '.' +
          (warnings.Count() == 0 ? ""
                                 : " " + Count(warnings.Count(), "warning") +
                                       (context.IsVerbose() ? "." : "; --verbose or --dry-run show them.")),
      {{"imported", CountsJson(counts)}, {"warnings", warnings.ToJson()}, {"warning_count", warnings.Count()}});
  return ExitStatus::Done;
}

} // namespace

void AddImportCommand(CLI::App& app, Context& context) {
  CLI::App& command = AddCommand(
      app, "import",
      "Replace the whole directory by that of a file which \"export\" wrote\n"
      "In one step: all of it or, when anything is wrong with the file, nothing. Others see the old directory or the "
      "new one. What a directory may hold but probably should not, such as filters that never apply, is imported with "
      "a warning.",
      "perenna-access import --dry-run backup.json\n  perenna-access import backup.json");
  auto options = std::make_shared<ImportOptions>();
  command.add_option("FILE", options->file, "The file; - for standard input")->required();
  CLI::Option* const dry_run =
      command.add_flag("--dry-run", options->dry_run,
                       "Show what would become of the rows and of everybody's rights, and change nothing");
  AddFailOnOption(command, options->fail_on).needs(dry_run);
  command.add_flag("--strict", options->strict, "Take warnings for errors: for files that were written by hand");
  command.add_flag("--force", options->force, "Import a file without any user too");
  context.OnRun(command, [&context, options] { return Import(context, *options); });
}

} // namespace Tool
