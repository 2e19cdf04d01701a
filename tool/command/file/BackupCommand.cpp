#include "tool/command/Commands.h"

#include <array>
#include <ctime>
#include <filesystem>
#include <memory>

#include "directory/file/Backup.h"
#include "directory/file/FileNames.h"
#include "directory/file/NewFile.h"
#include "directory/replica/ReplicaRow.h"
#include "tool/command/file/BackupCommand.h"
#include "tool/DirectoryNames.h"
#include "tool/terminal/ProgressBar.h"

namespace Tool {

namespace {

struct BackupOptions {
  std::string file;
  bool force = false;
};

/// Copies the database to `file`, which is published once it was found in order.
SectionCounts CopyChecked(Database& database, const NewFile& file) {
  ProgressBar progress;
  CopyTo(database, file.WorkName(), progress);
  Database copy(file.WorkName(), Database::Access::Read);
  RequireIntegrity(copy, progress);
  return StoredCounts(copy);
}

ExitStatus Backup(const Context& context, const BackupOptions& options) {
  RequireFileName(options.file);
  Database database(context.DatabaseFile(), Database::Access::Read);
  RequireApart(options.file, database.File());
  RequireNoRemains(options.file);
  const NewFile file(options.file, options.force ? NewFile::Existing::Replace : NewFile::Existing::Keep,
                     "--force replaces it");
  const SectionCounts counts = CopyChecked(database, file);
  file.Publish();
  context.Report("Backed up " + CountsText(counts) + " to " + Quoted(options.file) + '.',
                 {{"backed_up", CountsJson(counts)}, {"file", JsonText(options.file)}});
  return ExitStatus::Done;
}

/// What a replica holds is its store's: a backup of a replica of the same directory will be brought up to date, all
/// else would stay what no other machine has.
void RequireSameReplica(Database& backup, const std::string& file) {
  std::optional<ReplicaRow> replica;
  try {
    replica = ReadReplicaRow(file);
  } catch (const Failure&) {
    return; // damaged, to be mended
  }
  const auto source = ReadReplicaRow(backup);
  if (replica && (!source || source->directory != replica->directory)) {
    throw Failure(Failure::Kind::Refused, Quoted(file) + " is a replica, and the backup is not one of its directory: "
                                                         "\"import\" brings a directory into the store");
  }
}

ExitStatus Restore(const Context& context, const BackupOptions& options) {
  const std::string file = context.DatabaseFile();
  RequireFileName(file);
  RequireApart(options.file, file);
  std::error_code unknown;
  if (!std::filesystem::is_regular_file(options.file, unknown)) {
    throw Failure(Failure::Kind::Input, "the backup " + Quoted(options.file) + " does not exist or is not a file");
  }
  Database backup(options.file, Database::Access::Read);
  const SectionCounts counts = StoredCounts(backup);
  if (counts[Users] == 0 && !options.force) {
    throw Failure(Failure::Kind::Input, Quoted(options.file) + " has no users: nobody could log in, or create the "
                                                               "first user; --force restores it all the same");
  }
  {
    ProgressBar progress;
    RequireIntegrity(backup, progress);
    if (std::filesystem::is_regular_file(file, unknown)) {
      RequireSameReplica(backup, file);
      CopyInto(backup, file, progress);
    } else {
      const NewFile created(file, NewFile::Existing::Keep, "and is not a regular file");
      RequireNoRemains(file);
      CopyTo(backup, created.WorkName(), progress);
      created.Publish();
    }
  }
  context.Report("Restored " + CountsText(counts) + " from " + Quoted(options.file) + '.',
                 {{"restored", CountsJson(counts)}, {"file", JsonText(options.file)}});
  return ExitStatus::Done;
}

} // namespace

std::string BackUpBefore(const std::string& what, Database& database) {
  std::array<char, 32> moment{};
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  static_cast<void>(std::strftime(moment.data(), moment.size(), "%Y%m%dT%H%M%SZ", gmtime_r(&now, &parts)));
  std::string name = database.File() + ".before-" + what + '-' + moment.data();
  for (int number = 2; std::filesystem::exists(name); ++number) {
    name = database.File() + ".before-" + what + '-' + moment.data() + '-' + std::to_string(number);
  }
  const NewFile file(name, NewFile::Existing::Keep, "");
  CopyChecked(database, file);
  file.Publish();
  return name;
}

void AddBackupCommands(CLI::App& app, Context& context) {
  const auto add =
      [&](const std::string& name, const std::string& description, const std::string& example,
          ExitStatus (*run)(const Context&, const BackupOptions&)) -> std::pair<CLI::App&, BackupOptions&> {
    CLI::App& command = AddCommand(app, name, description, example);
    auto options = std::make_shared<BackupOptions>();
    context.OnRun(command, [&context, options, run] { return run(context, *options); });
    return {command, *options};
  };
  auto [backup, backup_options] =
      add("backup",
          "Copy the database file, while a server may be using it\n"
          "The copy holds the directory as of one moment, with its indexes, and is made for its owner alone.",
          "perenna-access backup access-backup.db", Backup);
  backup.add_option("FILE", backup_options.file, "The file to create")->required();
  backup.add_flag("--force", backup_options.force, "Replace an existing file");

  auto [restore, restore_options] =
      add("restore",
          "Put a file that \"backup\" made in the place of the database\n"
          "The file is checked first. In one step: a server that is using the database sees the old directory or the "
          "new one. A missing or damaged database is made anew.",
          "perenna-access restore access-backup.db", Restore);
  restore.add_option("FILE", restore_options.file, "The backup")->required();
  restore.add_flag("--force", restore_options.force, "Restore a directory without any user too");
}

} // namespace Tool
