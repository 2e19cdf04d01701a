#include "directory/file/Backup.h"

#include <cerrno>
#include <memory>
#include <new>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "directory/Failure.h"

namespace AccessDirectory {

namespace {

constexpr int PagesAStep = 1024; // 4 MiB: often enough for a progress bar
constexpr int BusyMilliseconds = 5000;

struct CloseConnection {
  void operator()(sqlite3* handle) const noexcept { sqlite3_close_v2(handle); }
};
using Connection = std::unique_ptr<sqlite3, CloseConnection>;

struct FinishBackup {
  void operator()(sqlite3_backup* backup) const noexcept { sqlite3_backup_finish(backup); } // rolls back what is half
};

Connection Open(const std::string& file) {
  sqlite3* handle = nullptr;
  const int opened = sqlite3_open_v2(file.c_str(), &handle, SQLITE_OPEN_READWRITE, nullptr);
  Connection connection(handle);
  if (handle == nullptr) {
    throw std::bad_alloc();
  }
  if (opened != SQLITE_OK) {
    throw Failure(Failure::Kind::System, "cannot open the database " + Quoted(file) + ": " + SqliteReason(handle));
  }
  sqlite3_busy_timeout(handle, BusyMilliseconds);
  return connection;
}

[[noreturn]] void FailToWrite(const std::string& file, int code, sqlite3* handle) {
  const bool busy = (code & 0xff) == SQLITE_BUSY || (code & 0xff) == SQLITE_LOCKED;
  throw Failure(Failure::Kind::System, "the database " + Quoted(file) +
                                           (busy ? " is busy: another program holds it locked; nothing was changed"
                                                 : " cannot be written: " + SqliteReason(handle)));
}

void Copy(Database& source, sqlite3* target, const std::string& file, Progress& progress) {
  sqlite3_busy_timeout(source.Handle(), BusyMilliseconds);
  // Without a transaction around its steps, the copy would begin anew with each change that another program makes.
  const Snapshot snapshot(source);
  source.Number("SELECT count(*) FROM sqlite_master");
  const std::unique_ptr<sqlite3_backup, FinishBackup> backup(
      sqlite3_backup_init(target, "main", source.Handle(), "main"));
  if (backup == nullptr) {
    FailToWrite(file, sqlite3_errcode(target), target);
  }
  progress.Begin("Copying", static_cast<std::uint64_t>(source.Number("PRAGMA page_count")));
  int code = SQLITE_OK;
  while ((code = sqlite3_backup_step(backup.get(), PagesAStep)) == SQLITE_OK) {
    progress.Advance(PagesAStep);
  }
  if (code != SQLITE_DONE) {
    FailToWrite(file, code, target);
  }
}

/// Throws when the file holds another program's data. What cannot be read because it is damaged is to be replaced.
void RequireAccessDatabaseOrDamage(sqlite3* handle, const std::string& file) {
  sqlite3_stmt* statement = nullptr;
  int code = sqlite3_prepare_v2(handle,
                                "SELECT count(*) > 0 AND sum(name IN ('users', 'groups', 'groupusers', 'filters')) < 4 "
                                "FROM sqlite_master WHERE type = 'table'",
                                -1, &statement, nullptr);
  code = code == SQLITE_OK ? sqlite3_step(statement) : code;
  const bool is_other = code == SQLITE_ROW && sqlite3_column_int(statement, 0) != 0;
  sqlite3_finalize(statement);
  if (is_other || code == SQLITE_NOTADB) {
    throw Failure(Failure::Kind::Refused, "the file " + Quoted(file) +
                                              " is not an access database; move it away, with what lies beside it, to "
                                              "have a new one made");
  }
  if (code != SQLITE_ROW && code != SQLITE_CORRUPT) {
    FailToWrite(file, code, handle);
  }
}

} // namespace

void RequireIntegrity(Database& database, Progress& progress) {
  progress.Begin("Checking", 0);
  const auto findings = database.Texts("PRAGMA integrity_check(1)");
  if (findings != std::vector<std::string>{"ok"}) {
    throw Failure(Failure::Kind::System, "the database " + Quoted(database.File()) + " is damaged: " +
                                             Shown(findings.empty() ? "it cannot be checked" : findings.front()));
  }
}

void CopyTo(Database& database, const std::string& file, Progress& progress) {
  const int descriptor = open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR);
  if (descriptor < 0) {
    throw Failure(Failure::Kind::System,
                  "cannot create " + Quoted(file) + ": " + std::generic_category().message(errno));
  }
  close(descriptor);
  Copy(database, Open(file).get(), file, progress);
}

void CopyInto(Database& backup, const std::string& file, Progress& progress) {
  const Connection target = Open(file);
  RequireAccessDatabaseOrDamage(target.get(), file);
  Copy(backup, target.get(), file, progress);
}

SectionCounts StoredCounts(Database& database) {
  SectionCounts counts{};
  for (std::size_t number = 0; number < SectionCount; ++number) {
    counts.at(number) =
        static_cast<std::size_t>(database.Number(std::string("SELECT count(*) FROM ") + Sections.at(number).table));
  }
  return counts;
}

} // namespace AccessDirectory
