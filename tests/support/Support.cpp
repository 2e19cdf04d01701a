#include "support/Support.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

namespace Testing {

std::vector<CaptureLog::Line> CaptureLog::Take() {
  const std::lock_guard<std::mutex> hold(m_Mutex);
  return std::exchange(m_Lines, {});
}

void CaptureLog::VLog(Tarn::LogType_t level, const char* format, std::va_list arguments) {
  std::va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, arguments);
  std::string text(static_cast<std::size_t>(length) + 1, '\0');
  static_cast<void>(std::vsnprintf(text.data(), text.size(), format, again)); // as long as the first call said
  va_end(again);
  text.pop_back();
  const std::lock_guard<std::mutex> hold(m_Mutex);
  m_Lines.emplace_back(level, std::move(text));
}

TemporaryDirectory::TemporaryDirectory() {
  std::string name = (std::filesystem::temp_directory_path() / "perenna-test-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr) {
    throw std::runtime_error("cannot create a temporary directory");
  }
  m_Path = name;
}

TemporaryDirectory::~TemporaryDirectory() {
  std::error_code ignored; // nothing to be done about it in a destructor
  std::filesystem::remove_all(m_Path, ignored);
}

BareDatabase::BareDatabase(const std::string& file) {
  if (sqlite3_open(file.c_str(), &m_Handle) != SQLITE_OK) {
    throw std::runtime_error("cannot open " + file);
  }
}

BareDatabase::~BareDatabase() {
  sqlite3_close_v2(m_Handle);
}

void BareDatabase::Run(const std::string& sql) {
  if (sqlite3_exec(m_Handle, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
    throw std::runtime_error(sql + ": " + sqlite3_errmsg(m_Handle));
  }
}

std::vector<BareDatabase::Row> BareDatabase::Query(const std::string& sql, const std::vector<std::string>& arguments) {
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v2(m_Handle, sql.c_str(), -1, &statement, nullptr) != SQLITE_OK) {
    throw std::runtime_error(sql + ": " + sqlite3_errmsg(m_Handle));
  }
  int index = 0;
  for (const std::string& argument : arguments) {
    sqlite3_bind_text(statement, ++index, argument.data(), static_cast<int>(argument.size()), SQLITE_TRANSIENT);
  }
  std::vector<Row> rows;
  int status = sqlite3_step(statement);
  for (; status == SQLITE_ROW; status = sqlite3_step(statement)) {
    Row& row = rows.emplace_back();
    for (int column = 0; column < sqlite3_column_count(statement); ++column) {
      const auto* const text = reinterpret_cast<const char*>(sqlite3_column_text(statement, column));
      row.emplace_back(text == nullptr
                           ? std::string("NULL")
                           : std::string(text, static_cast<std::size_t>(sqlite3_column_bytes(statement, column))));
    }
  }
  sqlite3_finalize(statement);
  if (status != SQLITE_DONE) {
    throw std::runtime_error(sql + ": " + sqlite3_errmsg(m_Handle));
  }
  return rows;
}

Perenna::PListDict Dict(const std::vector<std::pair<std::string, std::string>>& entries) {
  Perenna::PListDict dict;
  for (const auto& [key, value] : entries) {
    dict.SetValue(key, value);
  }
  return dict;
}

std::vector<std::string> Texts(const Perenna::PListArray& array) {
  std::vector<std::string> texts;
  for (const Perenna::PListItem* item : array) {
    texts.push_back(dynamic_cast<const Perenna::PListData&>(*item).GetValue());
  }
  return texts;
}

Perenna::PListArray Array(const std::vector<std::string>& texts) {
  Perenna::PListArray array;
  for (const std::string& text : texts) {
    array.AppendText(text);
  }
  return array;
}

std::string TakeText(CaptureLog& log) {
  std::string text;
  for (const auto& [level, line] : log.Take()) {
    text += std::string(1, "DIWENAC"[level]).append(":").append(line);
  }
  return text;
}

} // namespace Testing
