#include "directory/file/Database.h"

#include <array>
#include <new>

#include "TN_memio.h"
#include "TN_util.h"
#include "directory/Failure.h"
#include "directory/file/FileNames.h"
#include "directory/Log.h"
#include "directory/Text.h"

namespace AccessDirectory {

namespace {

// Each of the statement wrapper's nine attempts waits this long in SQLite before its own pause: five seconds together.
constexpr int BusyMilliseconds = 450;
constexpr int ProbeBusyMilliseconds = 5000; // the probes do without the wrapper

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
    throw Failure(Failure::Kind::System,
                  "the database " + Quoted(file) +
                      " does not exist or is not a file; \"perenna-access --database FILE init\" "
                      "creates one");
  }
  sqlite3* handle = nullptr;
  // For reading too: after a crash, the first reader rolls back what was half written. A file that may not be written
  // is opened for reading all the same.
  const int opened = sqlite3_open_v2(file.c_str(), &handle, SQLITE_OPEN_READWRITE, nullptr);
  m_Handle.reset(handle);
  if (handle == nullptr) {
    throw std::bad_alloc();
  }
  if (opened != SQLITE_OK) {
    throw Failure(Failure::Kind::System, "cannot open the database " + Quoted(file) + ": " + sqlite3_errmsg(handle));
  }
  sqlite3_busy_timeout(handle, ProbeBusyMilliseconds);
  for (const char* const probe : TableProbes) {
    TheLog().Clear();
    const int rc = sqlite3_exec(handle, probe, nullptr, nullptr, nullptr);
    if (rc == SQLITE_ERROR || rc == SQLITE_NOTADB || rc == SQLITE_CORRUPT) {
      throw Failure(Failure::Kind::System,
                    "the file " + Quoted(file) + " is not an access database: " + Shown(sqlite3_errmsg(handle)));
    }
    if (rc != SQLITE_OK) {
      Fail();
    }
  }
  sqlite3_busy_timeout(handle, BusyMilliseconds);
  if (access == Access::Read) {
    sqlite3_exec(handle, "PRAGMA query_only = ON", nullptr, nullptr, nullptr); // cannot fail: touches no file
  }
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
    throw Failure(Failure::Kind::System, file + " cannot be written: " + sqlite3_errmsg(m_Handle.get()));
  }
  throw Failure(Failure::Kind::System, file + ": " + Shown(sqlite3_errmsg(m_Handle.get())));
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
