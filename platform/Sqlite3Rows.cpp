// What a query takes from the rows of its result.

#include <algorithm>
#include <new>

#include "PN_Sqlite3.h"
#include "TN_log.h"
#include "TN_memio.h"

namespace Perenna::Sqlite3 {

namespace {

constexpr int BlobMinimumBytes = 8; // least buffer for a blob column

// Values are read through sqlite3_column_value: with one look a column, where each of the other readers takes the
// connection's mutex anew. Such a value is safe while nobody else uses the connection, which the caller's lock sees to.

/// The text of a value, stored NULs included: a value that merely begins with an allowed one must not equal it. A blob
/// counts as its bytes, whatever the encoding of the file's texts.
std::string Text(sqlite3* db, sqlite3_value* value, int type) {
  const void* const stored = type == SQLITE_BLOB ? sqlite3_value_blob(value) : sqlite3_value_text(value);
  const auto* const text = static_cast<const char*>(stored);
  if (text == nullptr) {
    if (sqlite3_errcode(db) == SQLITE_NOMEM) {
      throw std::bad_alloc(); // not an empty text: a "Deny" must not get lost
    }
    return {};
  }
  return {text, static_cast<std::size_t>(sqlite3_value_bytes(value))};
}

} // namespace

void SimpleQuery::StoreColumn(int column, PListDict& dict) {
  const std::string& key = m_ColumnNames[static_cast<std::size_t>(column)];
  sqlite3_value* const value = sqlite3_column_value(m_StmtHandle, column);
  const int type = sqlite3_value_type(value);
  switch (type) {
  case SQLITE_INTEGER:
    dict.SetValue(key, static_cast<long long>(sqlite3_value_int64(value)));
    return;
  case SQLITE_FLOAT:
    dict.SetValue(key, sqlite3_value_double(value));
    return;
  case SQLITE_TEXT:
    break;
  case SQLITE_BLOB: {
    const auto* const bytes = static_cast<const Tarn::byte_t*>(sqlite3_value_blob(value));
    const int count = sqlite3_value_bytes(value);
    Tarn::ByteString blob(static_cast<unsigned>(std::max(count, BlobMinimumBytes)));
    static_cast<void>(blob.Set(bytes, static_cast<unsigned>(count))); // out of memory: no bytes
    dict.SetValue(key, blob);
    return;
  }
  case SQLITE_NULL:
    dict.SetNull(key);
    return;
  default:
    Tarn::DefaultLogSink().Error("Unexpected column type, %d, in Sqlite3 row.\n", type);
    break;
  }
  dict.SetItem(key, new PListData(IT_STRING, Text(m_db, value, type))); // moved in, not copied
}

bool SimpleQuery::GetNextResult(PListDict& dict) {
  TN_REQUIRE(m_db != nullptr, "m_db!=0");
  if (m_StmtHandle == nullptr || !m_HasCurrentRow) {
    return false;
  }
  const int columns = sqlite3_column_count(m_StmtHandle);
  if (m_ColumnNames.size() != static_cast<std::size_t>(columns)) { // once for all rows
    m_ColumnNames.clear();
    for (int column = 0; column < columns; ++column) {
      const char* const name = sqlite3_column_name(m_StmtHandle, column);
      if (name == nullptr) {
        throw std::bad_alloc();
      }
      m_ColumnNames.emplace_back(name);
    }
  }
  for (int column = 0; column < columns; ++column) {
    StoreColumn(column, dict);
  }
  return StepResult();
}

bool SimpleQuery::GetNextResult(std::string& value) {
  TN_REQUIRE(m_db != nullptr, "m_db!=0");
  if (m_StmtHandle == nullptr || !m_HasCurrentRow) {
    return false;
  }
  sqlite3_value* const first = sqlite3_column_value(m_StmtHandle, 0);
  if (const int type = sqlite3_value_type(first); type != SQLITE_NULL) {
    value = Text(m_db, first, type);
  }
  return StepResult();
}

bool SimpleQuery::DiscardNextResult() {
  TN_REQUIRE(m_db != nullptr, "m_db!=0");
  if (m_StmtHandle == nullptr || !m_HasCurrentRow) {
    return false;
  }
  return StepResult();
}

} // namespace Perenna::Sqlite3
