#include "tool/command/Commands.h"

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>

#include "directory/Directory.h"
#include "directory/policy/AccessRulesReader.h"
#include "directory/replica/ReplicaRow.h"
#include "directory/transfer/DirectoryCheck.h"
#include "directory/transfer/DirectoryDifference.h"
#include "directory/transfer/DirectoryReader.h"
#include "directory/transfer/DirectoryText.h"
#include "directory/file/Backup.h"
#include "tool/command/file/BackupCommand.h"
#include "tool/command/file/DifferenceTable.h"
#include "tool/command/question/Proofs.h"
#include "tool/DirectoryNames.h"
#include "tool/terminal/Confirmation.h"
#include "tool/terminal/ProgressBar.h"

namespace Tool {

namespace {

struct ImportOptions {
  std::string file;
  bool force = false;
  bool strict = false;
  bool dry_run = false;
  std::string fail_on;
  bool merge = false;
  bool no_backup = false;
  std::vector<std::string> only;

  ImportScope Scope() const {
    ImportScope scope;
    scope.merge = merge;
    for (std::size_t number = 0; number < SectionCount && !only.empty(); ++number) {
      scope.sections.at(number) = std::find(only.begin(), only.end(), Sections.at(number).name) != only.end();
    }
    return scope;
  }
};

long long VersionOf(Database& database) {
  return database.Number("PRAGMA data_version");
}

/// Reads the file and finds everything that is wrong with it, or with the directory that it makes of the stored one.
void ReadAndCheck(Database& database, const ImportOptions& options, Progress& progress, Directory& directory,
                  FileFindings& errors, FileFindings& warnings, std::optional<long long>& version) {
  Input input(options.file, progress);
  std::vector<std::size_t> without; // a credential
  if (!ReadDirectory(input, directory, errors, without)) {
    return; // what is missing may stand in the part that could not be read
  }
  const ImportScope scope = options.Scope();
  if (!without.empty() || !scope.IsWhole()) {
    version = VersionOf(database);
    const Directory stored = [&database] {
      const Snapshot snapshot(database);
      return ReadStoredTexts(database);
    }();
    if (scope.sections[Users]) {
      KeepCredentials(directory, without, stored, errors);
    }
    directory = Combined(stored, std::move(directory), scope);
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

/// Puts the directory in place of the stored one, which is still that of `version` when what was read is part of it.
/// Returns the name of the backup that it makes first, of exactly what it replaces.
std::string WriteFile(Database& database, const Directory& directory, Progress& progress,
                      std::optional<long long> version, bool with_backup) {
  Transaction transaction(database);
  if (version && VersionOf(database) != *version) {
    throw Failure(Failure::Kind::Refused, "the directory was changed meanwhile; nothing was imported");
  }
  std::string backup;
  if (with_backup) {
    Database stored(database.File(), Database::Access::Read);
    backup = BackUpBefore("import", stored);
  }
  ReplaceDirectory(database, directory, progress);
  transaction.Commit();
  return backup;
}

/// The same through the store of a replica, which was at `read` when it was read; nothing when it was not.
std::string WriteStore(const Context& context, const Directory& directory, Progress& progress,
                       const std::optional<ReplicaRow>& read, bool with_backup) {
  std::string backup;
  context.Writer()->Write([&](Database& database) {
    if (read && ReadReplicaRow(database)->head_txn != read->head_txn) {
      throw Failure(Failure::Kind::Refused, "the directory was changed meanwhile; nothing was imported");
    }
    if (!backup.empty()) {
      std::filesystem::remove(backup); // another change came first
    }
    if (with_backup) {
      Database stored(database.File(), Database::Access::Read);
      backup = BackUpBefore("import", stored);
    }
    ReplaceDirectory(database, directory, progress);
  });
  return backup;
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
  std::optional<long long> version;
  const std::optional<ReplicaRow> replica = ReadReplicaRow(database);
  ReadAndCheck(database, options, progress, directory, errors, warnings, version);
  if (errors.Count() > 0) {
    progress.Clear();
    return Refuse(context, options, errors);
  }
  if (options.dry_run) {
    progress.Clear();
    return ShowDifference(context, database, directory, warnings, options.fail_on);
  }
  progress.Clear();
  const SectionCounts counts = CountsOf(directory);
  const SectionCounts before = StoredCounts(database);
  ConfirmRemoval(context, Sum(before) > 1 && !options.merge
                              ? "Replace " + CountsText(before) + " by " + CountsText(counts) + "?"
                              : std::string());
  const bool with_backup = !options.no_backup && Sum(before) > 0;
  const std::string backup =
      replica ? WriteStore(context, directory, progress, version ? replica : std::nullopt, with_backup)
              : WriteFile(database, directory, progress, version, with_backup);
  progress.Clear();
  if (context.IsVerbose() && !context.WantsJson()) {
    warnings.Print(std::cerr, "perenna-access: warning: ");
  }
  context.Report("Imported " + CountsText(counts) + '.' +
                     (warnings.Count() == 0 ? ""
                                            : " " + Count(warnings.Count(), "warning") +
                                                  (context.IsVerbose() ? "." : "; --verbose or --dry-run show them.")) +
                     (backup.empty() ? "" : "\nThe directory of before is in " + Quoted(backup) + '.'),
                 {{"imported", CountsJson(counts)},
                  {"backup", backup.empty() ? Json() : JsonText(backup)},
                  {"warnings", warnings.ToJson()},
                  {"warning_count", warnings.Count()}});
  return ExitStatus::Done;
}

} // namespace

void AddImportCommand(CLI::App& app, Context& context) {
  CLI::App& command = AddCommand(
      app, "import",
      "Replace the whole directory by that of a file which \"export\" wrote\n"
      "In one step: all of it or, when anything is wrong with the file, nothing. Others see the old directory or the "
      "new one. What a directory may hold but probably should not, such as filters that never apply, is imported with "
      "a warning. The directory of before is kept as a backup beside the database. A user without a credential keeps "
      "the stored one.",
      "perenna-access import --dry-run backup.json\n  perenna-access import backup.json");
  auto options = std::make_shared<ImportOptions>();
  command.add_option("FILE", options->file, "The file; - for standard input")->required();
  CLI::Option* const dry_run =
      command.add_flag("--dry-run", options->dry_run,
                       "Show what would become of the rows and of everybody's rights, and change nothing");
  AddFailOnOption(command, options->fail_on).needs(dry_run);
  command.add_flag("--strict", options->strict, "Take warnings for errors: for files that were written by hand");
  command.add_flag("--force", options->force, "Import a file without any user too");
  command
      .add_option("--only", options->only,
                  "Take only these sections from the file, joined by commas: users, groups, memberships, filters; the "
                  "others stay as they are")
      ->type_name("SECTIONS")
      ->delimiter(',')
      ->expected(1)
      ->take_all()
      ->check(CLI::IsMember(std::vector<std::string>{"users", "groups", "memberships", "filters"}));
  command.add_flag("--merge", options->merge,
                   "Add and change what the file has, and remove nothing that it does not have");
  command.add_flag("--no-backup", options->no_backup, "Make no backup of the directory of before, beside the database");
  context.OnRun(command, [&context, options] { return Import(context, *options); });
}

} // namespace Tool
