#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <sqlite3.h>

#include "PN_PList.h"
#include "PN_Sqlite3.h"

namespace AccessDirectory {

/// The tool's own connection to an existing access database, for what the module has no operation for.
///
/// Its operations, and those of the classes below, throw a `Failure` of the system when the file stays busy for
/// about five seconds or SQLite reports an error. One thread uses an object.
class Database {
public:
  enum class Access { Read, Write };

  /// Opens `file`, which must exist, and makes sure that it is an access database before anything is written. Throws
  /// `NoDatabase` when it does not exist, and `Failure` (System) when its schema is of a major version that this layer
  /// does not know. For reading, a file whose write-ahead log cannot be shared, as on a full
  /// disk, is taken for this connection alone when no other program has it open.
  Database(const std::string& file, Access access);

  sqlite3* Handle() noexcept { return m_Handle.get(); }
  const std::string& File() const noexcept { return m_File; }

  /// Runs one statement; its rows are discarded. Returns how many rows it changed.
  int Run(const std::string& sql, const std::vector<std::string>& arguments = {});

  /// The first column of the rows that `sql` gives.
  std::vector<std::string> Texts(const std::string& sql, const std::vector<std::string>& arguments = {});

  /// The number in the first column of the first row; 0 without a row.
  long long Number(const std::string& sql, const std::vector<std::string>& arguments = {});

  /// Throws the failure of the statement that ran last, explained from the log and from SQLite's own message.
  [[noreturn]] void Fail() const;

private:
  void Open();
  int Probe();
  void RequireKnownVersion();
  bool LacksSharedMemory(int code) const;
  [[noreturn]] void ThrowUnshared(const std::string& reason) const;

  struct Close {
    void operator()(sqlite3* handle) const noexcept { sqlite3_close_v2(handle); }
  };

  std::string m_File;
  std::unique_ptr<sqlite3, Close> m_Handle;
};

/// SQLite's words for what failed last on the connection, and the system's where that was the reason. Safe to print.
std::string SqliteReason(sqlite3* handle);

/// A statement of the tool's own, which may run any number of times. Arguments are texts, one a placeholder; one that
/// holds a NUL is bound as a blob, so a statement that may be given one says CAST(? AS TEXT).
class Statement : private Perenna::Sqlite3::SimpleQuery {
public:
  Statement(Database& database, const std::string& sql);

  /// Runs it and discards its rows; returns how many rows it changed.
  int Run(const std::vector<std::string>& arguments = {});

  /// A row: its columns under their names. A blob reads as base64: cast what must be text.
  using Visitor = std::function<void(const Perenna::PListDict& row)>;
  /// Hands every row to `visit`.
  void ForEach(const std::vector<std::string>& arguments, const Visitor& visit);

private:
  bool Start(const std::vector<std::string>& arguments);

  Database& m_Database;
  std::size_t m_Names = 0; // placeholders that have been named
};

/// The text of one column of a row.
const std::string& Field(const Perenna::PListDict& row, const std::string& column);

/// A transaction that writes: it waits for the write lock, and nothing of it stays unless `Commit` returns.
class Transaction {
public:
  explicit Transaction(Database& database);
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;
  void Commit();

private:
  Database& m_Database;
  bool m_Open = true;
};

/// A transaction that reads: until its end, every statement of the connection sees the same state.
class Snapshot {
public:
  explicit Snapshot(Database& database);
  ~Snapshot();
  Snapshot(const Snapshot&) = delete;
  Snapshot& operator=(const Snapshot&) = delete;

private:
  Database& m_Database;
};

} // namespace AccessDirectory
