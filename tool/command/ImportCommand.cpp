#include "tool/command/Commands.h"

#include <iostream>
#include <memory>

#include "directory/Directory.h"
#include "directory/transfer/DirectoryCheck.h"
#include "directory/transfer/DirectoryDifference.h"
#include "directory/transfer/DirectoryReader.h"
#include "tool/command/DifferenceTable.h"
#include "tool/DirectoryNames.h"
#include "tool/terminal/ProgressBar.h"

namespace Tool {

namespace {

struct ImportOptions {
  std::string file;
  bool force = false;
  bool strict = false;
  bool dry_run = false;
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

std::string InsertStatement(const Section& section) {
  std::string names;
  std::string values;
  for (const std::string& column : section.columns) {
    names += (names.empty() ? "" : ", ") + column;
    values += values.empty() ? "CAST(? AS TEXT)" : ", CAST(? AS TEXT)";
  }
  std::string sql = "INSERT INTO ";
  sql.append(section.table).append("(").append(names).append(") VALUES(").append(values).append(")");
  return sql;
}

/// Puts the directory in place of the stored one.
void Write(Database& database, const Directory& directory, Progress& progress) {
  if (database.Texts("PRAGMA encoding") != std::vector<std::string>{"UTF-8"}) {
    throw Failure(Failure::Kind::System, "the database " + Quoted(database.File()) +
                                             " stores its texts as UTF-16, which cannot hold every text");
  }
  // Without this, a change larger than SQLite's cache would lock readers out long before it is complete.
  database.Run("PRAGMA cache_spill = OFF");
  progress.Begin("Writing", Sum(CountsOf(directory)));
  Transaction transaction(database);
  for (std::size_t number = 0; number < SectionCount; ++number) {
    const Section& section = Sections.at(number);
    const Rows& rows = directory.at(number);
    database.Run(std::string("DELETE FROM ") + section.table);
    Statement insert(database, InsertStatement(section));
    std::vector<std::string> texts(section.columns.size());
    for (std::size_t row = 0; row < rows.Count(); ++row) {
      for (std::size_t column = 0; column < texts.size(); ++column) {
        texts[column] = rows.At(row, column);
      }
      insert.Run(texts);
      progress.Advance(1);
    }
  }
  transaction.Commit();
}

ExitStatus ShowDifference(const Context& context, Database& database, const Directory& directory,
                          const FileFindings& warnings) {
  Directory stored = EmptyDirectory();
  {
    const Snapshot snapshot(database);
    for (std::size_t number = 0; number < SectionCount; ++number) {
      ForEachRow(database, Sections.at(number), NotText::Convert,
                 [&](const std::vector<std::string>& texts) { stored.at(number).Append(texts); });
    }
  }
  const DirectoryDifference difference(stored, directory);
  if (context.WantsJson()) {
    PrintJson({{"dry_run", true},
               {"difference", difference.ToJson()},
               {"warnings", warnings.ToJson()},
               {"warning_count", warnings.Count()}});
    return ExitStatus::Done;
  }
  PrintDifference(std::cout, difference);
  std::cout << Count(warnings.Count(), "warning") << (warnings.Count() == 0 ? "\n" : ":\n");
  warnings.Print(std::cout, "  ");
  std::cout << "Nothing was imported: this was a dry run.\n";
  return ExitStatus::Done;
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
    return ShowDifference(context, database, directory, warnings);
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
  command.add_flag("--dry-run", options->dry_run, "Show how the file differs from the directory, and change nothing");
  command.add_flag("--strict", options->strict, "Take warnings for errors: for files that were written by hand");
  command.add_flag("--force", options->force, "Import a file without any user too");
  context.OnRun(command, [&context, options] { return Import(context, *options); });
}

} // namespace Tool
