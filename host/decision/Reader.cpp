#include "host/decision/Reader.h"

#include <new>

#include "directory/Failure.h"
#include "directory/text/Text.h"

namespace Host {

Reader::Reader(const std::string& file, int busy_milliseconds) {
  sqlite3* handle = nullptr;
  // For writing too: after a crash, the first reader rolls back what was half written.
  const int opened = sqlite3_open_v2(file.c_str(), &handle, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
  m_Handle.reset(handle);
  if (handle == nullptr) {
    throw std::bad_alloc();
  }
  if (opened != SQLITE_OK) {
    throw AccessDirectory::Failure(AccessDirectory::Failure::Kind::System, "cannot open the database " +
                                                                               AccessDirectory::Quoted(file) + ": " +
                                                                               sqlite3_errmsg(handle));
  }
  sqlite3_busy_timeout(handle, busy_milliseconds);
}

int ReaderQuery::Prepare() {
  if (m_Statement != nullptr) {
    return SQLITE_OK;
  }
  sqlite3_stmt* statement = nullptr;
  const int prepared = sqlite3_prepare_v3(m_Reader.Handle(), m_Sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
  m_Statement.reset(statement);
  return prepared;
}

int ReaderQuery::Run(std::initializer_list<std::string_view> arguments, const Visitor& visit) {
  int status = Prepare();
  int index = 0;
  for (const std::string_view argument : arguments) {
    if (status == SQLITE_OK) {
      // Not copied: the arguments outlive the run, after which they are bound no more.
      status = sqlite3_bind_text64(m_Statement.get(), ++index, argument.data() == nullptr ? "" : argument.data(),
                                   argument.size(), SQLITE_STATIC, SQLITE_UTF8);
    }
  }
  if (status != SQLITE_OK) {
    return status;
  }
  while ((status = sqlite3_step(m_Statement.get())) == SQLITE_ROW) {
    visit(*this);
  }
  sqlite3_reset(m_Statement.get());
  sqlite3_clear_bindings(m_Statement.get());
  return status;
}

std::string ReaderQuery::Text(int column) const {
  const auto* const text = reinterpret_cast<const char*>(sqlite3_column_text(m_Statement.get(), column));
  const int bytes = sqlite3_column_bytes(m_Statement.get(), column);
  return text == nullptr ? std::string() : std::string(text, static_cast<std::size_t>(bytes));
}

} // namespace Host
