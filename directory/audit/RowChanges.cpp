#include "directory/audit/RowChanges.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <iterator>
#include <map>
#include <mutex>
#include <new>
#include <thread>
#include <utility>

#include <sqlite3.h>

#include "directory/Directory.h"
#include "directory/Failure.h"

// Declared only where SQLite's own sources are compiled with the option.
extern "C" {
void* sqlite3_preupdate_hook(sqlite3*,
                             void (*)(void*, sqlite3*, int, char const*, char const*, sqlite3_int64, sqlite3_int64),
                             void*);
int sqlite3_preupdate_old(sqlite3*, int, sqlite3_value**);
int sqlite3_preupdate_new(sqlite3*, int, sqlite3_value**);
int sqlite3_preupdate_count(sqlite3*);
}

namespace AccessDirectory {

namespace {

/// What one connection has changed in its last transaction. It belongs to the connection, which one thread uses at a
/// time, though not always the same.
struct Recorder {
  std::vector<std::string> pending;
  std::thread::id owner;   // who made them
  bool committing = false; // whether they are as good as stored
};

std::mutex s_mutex; // guards all of this, and what recorders hold
std::map<std::thread::id, std::vector<std::string>> s_committed;
std::atomic<bool> s_watches{false};
thread_local std::vector<std::string> s_taken;

const Section* SectionOf(const char* table) {
  const auto* const found = std::find_if(Sections.begin(), Sections.end(), [table](const Section& section) {
    return std::strcmp(section.table, table) == 0;
  });
  return found == Sections.end() ? nullptr : &*found;
}

std::string TextOf(sqlite3_value* value) {
  const void* const bytes = sqlite3_value_blob(value); // a text's bytes too
  return bytes == nullptr
             ? std::string()
             : std::string(static_cast<const char*>(bytes), static_cast<std::size_t>(sqlite3_value_bytes(value)));
}

using Reader = int (*)(sqlite3*, int, sqlite3_value**);

Json RowOf(sqlite3* database, const Section& section, Reader read, std::string& secret) {
  Json row = Json::object();
  const int columns = std::min(static_cast<int>(section.columns.size()), sqlite3_preupdate_count(database));
  for (int column = 0; column < columns; ++column) {
    sqlite3_value* value = nullptr;
    if (read(database, column, &value) != SQLITE_OK) {
      continue;
    }
    const auto place = static_cast<std::size_t>(column);
    if (section.IsSecret(place)) {
      secret = TextOf(value);
    } else {
      row[section.columns[place]] = JsonText(TextOf(value));
    }
  }
  return row;
}

void Take(Recorder& recorder, sqlite3* database, int operation, const char* table) {
  const Section* const section = SectionOf(table);
  if (section == nullptr) {
    return;
  }
  std::string old_secret;
  std::string new_secret;
  Json change = {{"table", section->table}, {"before", Json()}, {"after", Json()}};
  if (operation != SQLITE_INSERT) {
    change["before"] = RowOf(database, *section, &sqlite3_preupdate_old, old_secret);
  }
  if (operation != SQLITE_DELETE) {
    change["after"] = RowOf(database, *section, &sqlite3_preupdate_new, new_secret);
  }
  if (operation == SQLITE_UPDATE && old_secret != new_secret) {
    change["credential_changed"] = true;
  }
  recorder.owner = std::this_thread::get_id();
  recorder.pending.push_back(change.dump(-1, ' ', true));
}

/// Called with the lock held, when a statement has ended: a commit that failed was rolled back by then.
void Settle(Recorder& recorder) {
  if (recorder.committing) {
    std::vector<std::string>& committed = s_committed[recorder.owner];
    std::move(recorder.pending.begin(), recorder.pending.end(), std::back_inserter(committed));
    recorder.pending.clear();
    recorder.committing = false;
  }
}

void OnChange(void* argument, sqlite3* database, int operation, const char* /*schema*/, const char* table,
              sqlite3_int64 /*old*/, sqlite3_int64 /*now*/) {
  try {
    const std::lock_guard<std::mutex> hold(s_mutex);
    auto& recorder = *static_cast<Recorder*>(argument);
    Take(recorder, database, operation, table);
  } catch (const std::exception&) {
    // Memory ran out: the change itself goes on or fails for the same reason.
  }
}

int OnCommit(void* argument) {
  const std::lock_guard<std::mutex> hold(s_mutex);
  static_cast<Recorder*>(argument)->committing = true;
  return 0;
}

int OnEndOfStatement(unsigned /*event*/, void* argument, void* /*statement*/, void* /*nanoseconds*/) {
  try {
    const std::lock_guard<std::mutex> hold(s_mutex);
    Settle(*static_cast<Recorder*>(argument));
  } catch (const std::exception&) {
    // Memory ran out: the line lacks these rows.
  }
  return 0;
}

/// Also where a commit fails after all.
void OnRollback(void* argument) {
  const std::lock_guard<std::mutex> hold(s_mutex);
  auto& recorder = *static_cast<Recorder*>(argument);
  recorder.pending.clear();
  recorder.committing = false;
}

void Forget(void* argument) {
  auto* const recorder = static_cast<Recorder*>(argument);
  {
    const std::lock_guard<std::mutex> hold(s_mutex);
    Settle(*recorder);
  }
  delete recorder; // NOLINT(cppcoreguidelines-owning-memory): the connection owned it
}

/// The SQL function by which the connection's recorder is found. It gives how many rows it has put into `s_taken`.
void TakePending(sqlite3_context* context, int /*count*/, sqlite3_value** /*values*/) {
  const std::lock_guard<std::mutex> hold(s_mutex);
  auto* const recorder = static_cast<Recorder*>(sqlite3_user_data(context));
  s_taken = std::exchange(recorder->pending, {});
  sqlite3_result_int64(context, static_cast<sqlite3_int64>(s_taken.size()));
}

/// Called by SQLite for each new connection.
int OnOpen(sqlite3* database, const char** /*message*/, const void* /*routines*/) {
  auto* const recorder = new (std::nothrow) Recorder; // NOLINT(cppcoreguidelines-owning-memory): see `Forget`
  if (recorder == nullptr) {
    return SQLITE_NOMEM;
  }
  // SQLite ends a function's argument with the connection, also when this fails. Nothing that is stored in the file may
  // call it.
  const int result = sqlite3_create_function_v2(database, "perenna_row_changes", 0, SQLITE_UTF8 | SQLITE_DIRECTONLY,
                                                recorder, &TakePending, nullptr, nullptr, &Forget);
  if (result != SQLITE_OK) {
    return result;
  }
  sqlite3_preupdate_hook(database, &OnChange, recorder);
  sqlite3_commit_hook(database, &OnCommit, recorder);
  sqlite3_rollback_hook(database, &OnRollback, recorder);
  sqlite3_trace_v2(database, SQLITE_TRACE_PROFILE, &OnEndOfStatement, recorder);
  return SQLITE_OK;
}

} // namespace

void WatchRowChanges() {
  const bool has_hook = sqlite3_compileoption_used("ENABLE_PREUPDATE_HOOK") != 0;
  if (!has_hook || sqlite3_auto_extension(reinterpret_cast<void (*)()>(&OnOpen)) != SQLITE_OK) {
    throw Failure(Failure::Kind::System, "changes cannot be recorded: SQLite was built without its hook for them");
  }
  s_watches = true;
}

std::vector<std::string> TakeRowChanges() {
  const std::lock_guard<std::mutex> hold(s_mutex);
  auto mine = s_committed.extract(std::this_thread::get_id());
  return mine.empty() ? std::vector<std::string>() : std::move(mine.mapped());
}

std::vector<std::string> TakePendingRowChanges(Database& database) {
  if (!s_watches || database.Number("SELECT perenna_row_changes()") == 0) {
    return {};
  }
  return std::exchange(s_taken, {});
}

void AddRowChanges(std::vector<std::string> rows) {
  const std::lock_guard<std::mutex> hold(s_mutex);
  std::vector<std::string>& committed = s_committed[std::this_thread::get_id()];
  std::move(rows.begin(), rows.end(), std::back_inserter(committed));
}

} // namespace AccessDirectory
