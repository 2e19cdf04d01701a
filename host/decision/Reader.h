#pragma once

#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>

#include <sqlite3.h>

namespace Host {

/// A connection that only reads, for what is looked at with every request: unlike `AccessDirectory::Database` it waits
/// next to nothing, throws nothing once it is open, and keeps its statements prepared. One thread's own.
class Reader {
public:
  /// Opens an existing `file`; nothing is read yet. Throws `AccessDirectory::Failure` (System).
  Reader(const std::string& file, int busy_milliseconds);
  sqlite3* Handle() noexcept { return m_Handle.get(); }

private:
  struct Close {
    void operator()(sqlite3* handle) const noexcept { sqlite3_close_v2(handle); }
  };
  std::unique_ptr<sqlite3, Close> m_Handle;
};

/// A statement of a reader, which must outlive it.
class ReaderQuery {
public:
  ReaderQuery(Reader& reader, const char* sql) : m_Reader(reader), m_Sql(sql) {}

  using Visitor = std::function<void(const ReaderQuery& row)>;
  /// Runs it with text arguments and hands over each row; then no lock is held any more. SQLITE_DONE, or the status of
  /// what failed, after which rows handed over count for nothing.
  int Run(std::initializer_list<std::string_view> arguments, const Visitor& visit);

  // Columns of the row that is being visited.
  std::string Text(int column) const;
  sqlite3_int64 Number(int column) const { return sqlite3_column_int64(m_Statement.get(), column); }

private:
  struct Finalize {
    void operator()(sqlite3_stmt* statement) const noexcept { sqlite3_finalize(statement); }
  };

  int Prepare();

  Reader& m_Reader;
  const char* m_Sql;
  std::unique_ptr<sqlite3_stmt, Finalize> m_Statement;
};

} // namespace Host
