#include "support/Support.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

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
  std::vsnprintf(text.data(), text.size(), format, again);
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

Finished RunProgram(const std::vector<std::string>& arguments) {
  std::vector<char*> argv;
  for (const std::string& argument : arguments) {
    argv.push_back(const_cast<char*>(argument.c_str())); // not written to; the interface is older than const
  }
  argv.push_back(nullptr);
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    throw std::runtime_error("cannot create a pipe");
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, ends[1], STDERR_FILENO);
  pid_t program = -1;
  const int started = posix_spawnp(&program, argv.front(), &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(ends[1]);
  Finished finished{-1, ""};
  std::array<char, 4096> part{};
  for (ssize_t count = 0; started == 0 && (count = read(ends[0], part.data(), part.size())) > 0;) {
    finished.output.append(part.data(), static_cast<std::size_t>(count));
  }
  close(ends[0]);
  int status = 0;
  if (started == 0 && waitpid(program, &status, 0) == program && WIFEXITED(status)) {
    finished.status = WEXITSTATUS(status);
  }
  return finished;
}

} // namespace Testing
