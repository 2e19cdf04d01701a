#include "directory/file/Database.h"

#include <array>
#include <new>
#include <system_error>

#include "TN_memio.h"
#include "TN_util.h"
#include "directory/Failure.h"
#include "directory/file/FileNames.h"
#include "directory/Log.h"
#include "directory/text/Text.h"

namespace AccessDirectory {

namespace {

// Each of the statement wrapper's nine attempts waits this long in SQLite before its own pause: five seconds together.
constexpr int BusyMilliseconds = 450;
constexpr int ProbeBusyMilliseconds = 5000; // the probes do without the wrapper

constexpr const char* KnownMajorVersion = "1";

// What makes a file an access database: statements that name every column the module uses.
constexpr std::array<const char*, 4> TableProbes = {
    "SELECT user_id, auth_method, auth_value, create_date, create_user FROM users LIMIT 0",
    "SELECT group_id, group_name FROM groups LIMIT 0",
    "SELECT group_id, user_id FROM groupusers LIMIT 0",
    "SELECT method, group_id, filter, action FROM filters LIMIT 0",
};

} // namespace

Database::Database(const std::string& file, Access access) : m_File(file) {
  RequireFileName(file);
  if (!Tarn::PathIsFile(file)) {
    throw NoDatabase("the database " + Quoted(file) + " does not exist or is not a file");
  }
  Open();
  int probed = Probe();
  if (access == Access::Read && LacksSharedMemory(probed)) {
    // A tuned file on a full disk, say. A connection that has the file to itself shares no memory: SQLite makes sure
    // that there is no other, and keeps others out until the end of this one.
    const std::string reason = SqliteReason(Handle());
    Open();
    sqlite3_exec(Handle(), "PRAGMA locking_mode = EXCLUSIVE", nullptr, nullptr, nullptr);
    if (Probe() != SQLITE_OK) {
      ThrowUnshared(reason);
    }
    probed = SQLITE_OK;
  }
  if (LacksSharedMemory(probed)) {
    ThrowUnshared(SqliteReason(Handle()));
  }
  if (probed == SQLITE_ERROR || probed == SQLITE_NOTADB || probed == SQLITE_CORRUPT) {
    throw Failure(Failure::Kind::System,
                  "the file " + Quoted(file) + " is not an access database: " + Shown(sqlite3_errmsg(Handle())));
  }
  if (probed != SQLITE_OK) {
    Fail();
  }
  RequireKnownVersion();
  sqlite3_busy_timeout(Handle(), BusyMilliseconds);
  if (access == Access::Read) {
    sqlite3_exec(Handle(), "PRAGMA query_only = ON", nullptr, nullptr, nullptr); // cannot fail: touches no file
  }
}

void Database::Open() {
  m_Handle.reset(); // before another connection looks at the file
  sqlite3* handle = nullptr;
  // For reading too: after a crash, the first reader rolls back what was half written. A file that may not be written
  // is opened for reading all the same.
  const int opened = sqlite3_open_v2(m_File.c_str(), &handle, SQLITE_OPEN_READWRITE, nullptr);
  m_Handle.reset(handle);
  if (handle == nullptr) {
    throw std::bad_alloc();
  }
  if (opened != SQLITE_OK) {
    throw Failure(Failure::Kind::System, "cannot open the database " + Quoted(m_File) + ": " + SqliteReason(handle));
  }
}

int Database::Probe() {
  TheLog().Clear();
  sqlite3_busy_timeout(Handle(), ProbeBusyMilliseconds);
  for (const char* const probe : TableProbes) {
    const int code = sqlite3_exec(Handle(), probe, nullptr, nullptr, nullptr);
    if (code != SQLITE_OK) {
      return code;
    }
  }
  return SQLITE_OK;
}

/// The module opens a file of any version. What writes past it has to know the tables. A file without the table, or
/// with nothing in it, was made by hand and says nothing of its version.
void Database::RequireKnownVersion() {
  if (Number("SELECT count(*) FROM sqlite_master WHERE type = 'table' AND name = 'version_info'") == 0) {
    return;
  }
  const std::vector<std::string> unknown =
      Texts("SELECT CAST(coalesce(version_string, major) AS TEXT) FROM version_info WHERE major IS NOT ? LIMIT 1",
            {KnownMajorVersion});
  if (!unknown.empty()) {
    throw Failure(Failure::Kind::System, "the database " + Quoted(m_File) + " is of version " +
                                             Quoted(unknown.front()) + ", made for a newer program: versions " +
                                             KnownMajorVersion + ".x are understood here");
  }
}

/// Whether the last statement failed because the memory could not be made that a write-ahead log is shared through.
bool Database::LacksSharedMemory(int code) const {
  const int extended = sqlite3_extended_errcode(m_Handle.get());
  return code == SQLITE_FULL || code == SQLITE_CANTOPEN ||
         (code == SQLITE_IOERR &&
          (extended == SQLITE_IOERR_SHMOPEN || extended == SQLITE_IOERR_SHMSIZE || extended == SQLITE_IOERR_SHMMAP));
}

void Database::ThrowUnshared(const std::string& reason) const {
  throw Failure(Failure::Kind::System, "cannot open the database " + Quoted(m_File) + ": " + reason +
                                           "; a file with write-ahead logging needs room for " +
                                           Quoted(m_File + "-shm") + " beside it, and leave to write there");
}

int Database::Run(const std::string& sql, const std::vector<std::string>& arguments) {
  return Statement(*this, sql).Run(arguments);
}

std::vector<std::string> Database::Texts(const std::string& sql, const std::vector<std::string>& arguments) {
  std::vector<std::string> texts;
  Statement(*this, sql).ForEach(arguments, [&texts](const Perenna::PListDict& row) {
    for (const auto& [column, item] : row) { // the only one
      texts.push_back(row.GetData(column).GetValue());
    }
  });
  return texts;
}

long long Database::Number(const std::string& sql, const std::vector<std::string>& arguments) {
  const std::vector<std::string> texts = Texts(sql, arguments);
  return texts.empty() ? 0 : std::stoll(texts.front());
}

void Database::Fail() const {
  const int code = sqlite3_errcode(m_Handle.get()) & 0xff;
  const std::string file = "the database " + Quoted(m_File);
  if (TheLog().TimedOut() || code == SQLITE_BUSY || code == SQLITE_LOCKED) {
    throw Failure(Failure::Kind::System, file + " is busy: another program holds it locked; nothing was changed");
  }
  if (code == SQLITE_READONLY) {
    throw Failure(Failure::Kind::System, file + " cannot be written: " + SqliteReason(m_Handle.get()));
  }
  throw Failure(Failure::Kind::System, file + ": " + SqliteReason(m_Handle.get()));
}

std::string SqliteReason(sqlite3* handle) {
  const int code = sqlite3_errcode(handle) & 0xff;
  const int system = sqlite3_system_errno(handle);
  const bool is_system = code == SQLITE_CANTOPEN || code == SQLITE_IOERR || code == SQLITE_FULL;
  return Shown(sqlite3_errmsg(handle)) +
         (is_system && system != 0 ? ": " + std::generic_category().message(system) : "");
}

Statement::Statement(Database& database, const std::string& sql)
    : SimpleQuery(database.Handle(), sql), m_Database(database) {}

/// Binds and steps once; whether a row is waiting.
bool Statement::Start(const std::vector<std::string>& arguments) {
  TheLog().Clear();
  while (m_Names < arguments.size()) {
    PushArgName(std::to_string(m_Names++));
  }
  Perenna::PListDict dict;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& text = arguments[i];
    if (text.find('\0') == std::string::npos) {
      dict.SetValue(std::to_string(i), text);
      continue;
    }
    Tarn::ByteString bytes;
    if (bytes.Set(reinterpret_cast<const Tarn::byte_t*>(text.data()), static_cast<unsigned>(text.size())).Failed()) {
      throw std::bad_alloc();
    }
    dict.SetValue(std::to_string(i), bytes);
  }
  const Tarn::Result_t result = arguments.empty() ? Exec() : Exec(dict);
  if (result.Failed()) {
    m_Database.Fail();
  }
  return result == Tarn::RESULT_OK;
}

int Statement::Run(const std::vector<std::string>& arguments) {
  ForEach(arguments, [](const Perenna::PListDict&) {});
  return sqlite3_changes(m_Database.Handle());
}

void Statement::ForEach(const std::vector<std::string>& arguments, const Visitor& visit) {
  if (!Start(arguments)) {
    return;
  }
  Perenna::PListDict row;
  while (GetNextResult(row)) {
    visit(row);
  }
  // The wrapper's answer is the same at the end and after a failure; SQLite's is not.
  const int code = sqlite3_errcode(m_Database.Handle());
  if (TheLog().TimedOut() || (code != SQLITE_OK && code != SQLITE_ROW && code != SQLITE_DONE)) {
    m_Database.Fail();
  }
}

const std::string& Field(const Perenna::PListDict& row, const std::string& column) {
  return row.GetData(column).GetValue();
}

Transaction::Transaction(Database& database) : m_Database(database) {
  m_Database.Run("BEGIN IMMEDIATE");
}

Transaction::~Transaction() {
  if (m_Open) {
    sqlite3_exec(m_Database.Handle(), "ROLLBACK", nullptr, nullptr, nullptr); // closing the connection would do as well
  }
}

void Transaction::Commit() {
  m_Database.Run("COMMIT");
  m_Open = false;
}

Snapshot::Snapshot(Database& database) : m_Database(database) {
  m_Database.Run("BEGIN");
}

Snapshot::~Snapshot() {
  sqlite3_exec(m_Database.Handle(), "COMMIT", nullptr, nullptr, nullptr); // nothing was written
}

} // namespace AccessDirectory
