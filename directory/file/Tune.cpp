#include "directory/file/Tune.h"

#include <algorithm>
#include <array>

#include "directory/Failure.h"

namespace AccessDirectory {

namespace {

// The statistics that go with an index describe a large directory of even shape, whatever the file holds: rows, and
// rows that share the first column, and the first two. SQLite gathers the real ones once and plans by them for ever;
// those of a small directory, or of one with a single large group, make it read whole tables when the directory grows.
struct Index {
  const char* name;
  const char* table;
  const char* definition;
  const char* statistics;
  const char* why;
};

constexpr std::array<Index, 4> Indexes = {{
    {"perenna_tune_filters", "filters", "filters(group_id, method)", "1000000 8 2",
     "a decision reads the filters of the user's own groups for the request's method, not all filters"},
    {"perenna_tune_user_groups", "groupusers", "groupusers(user_id, group_id)", "1000000 4 1",
     "the groups of a user are found without reading every membership, in a decision and in the listing of users"},
    {"perenna_tune_group_users", "groupusers", "groupusers(group_id, user_id)", "1000000 8 1",
     "the members of a group are found without reading every membership, in the listing and when a group changes"},
    {"perenna_tune_certificates", "users", "users(auth_value) WHERE auth_method = 'tls_client_certificate'",
     "1000000 1", "the user of a client certificate is found without reading every user; passwords are not indexed"},
}};

// What the module asks. Its listings are to come in the order of the table, which an index would change; everything
// else is to be found without reading a table whole.
constexpr std::array<const char*, 3> Listings = {"SELECT * FROM users", "SELECT * FROM groups",
                                                 "SELECT * FROM filters"};
constexpr std::array<const char*, 9> Lookups = {
    "SELECT * FROM users WHERE user_id = ?",
    "SELECT * FROM users WHERE auth_method = 'tls_client_certificate' AND auth_value = ?",
    "SELECT DISTINCT group_id FROM groupusers WHERE user_id = ? ORDER BY group_id",
    "SELECT user_id FROM groupusers WHERE group_id = ? ORDER BY user_id",
    "DELETE FROM groupusers WHERE user_id = ?",
    "DELETE FROM groupusers WHERE group_id = ?",
    "DELETE FROM filters WHERE method = ? AND group_id = ? AND filter = ? AND action = ?",
    "SELECT DISTINCT action FROM filters WHERE method = ? AND group_id IN ( SELECT DISTINCT group_id FROM groupusers "
    "WHERE user_id = ? ) AND ? REGEXP filter",
    "SELECT DISTINCT method, action FROM filters WHERE group_id IN ( SELECT DISTINCT group_id FROM groupusers WHERE "
    "user_id = ? ) AND ? REGEXP filter",
};

constexpr const char* WriteAheadLog = "wal";
constexpr const char* RollbackJournal = "delete";

constexpr const char* OwnIndexes =
    "SELECT name FROM sqlite_master WHERE type = 'index' AND name GLOB 'perenna_tune_*' ORDER BY name";
constexpr const char* StatisticsTables =
    "SELECT name FROM sqlite_master WHERE type = 'table' AND name GLOB 'sqlite_stat[0-9]' ORDER BY name";

std::string JournalMode(Database& database) {
  return database.Texts("PRAGMA journal_mode").at(0);
}

std::string CreateStatement(const Index& index) {
  return std::string("CREATE INDEX ") + index.name + " ON " + index.definition;
}

bool IsInPlace(Database& database, const Index& index) {
  return database.Texts("SELECT sql FROM sqlite_master WHERE name = ?", {index.name}) ==
         std::vector<std::string>{CreateStatement(index)};
}

TuneStep DropIndex(const std::string& name, const char* why) {
  std::string quoted = "\"";
  for (const char byte : name) { // the name is the file's
    quoted += byte == '"' ? "\"\"" : std::string(1, byte);
  }
  return {"index", name, "drop", {"DROP INDEX " + quoted + "\""}, why};
}

/// What the statistics table holds once the file is tuned, in its order.
std::vector<std::string> StatisticsRows() {
  std::vector<std::string> rows;
  rows.reserve(Indexes.size());
  for (const Index& index : Indexes) {
    rows.push_back(std::string("'") + index.table + "', '" + index.name + "', '" + index.statistics + "'");
  }
  std::sort(rows.begin(), rows.end());
  return rows;
}

bool HasStatistics(Database& database) {
  return database.Texts(StatisticsTables) == std::vector<std::string>{"sqlite_stat1"} &&
         database.Texts("SELECT quote(tbl) || ', ' || quote(idx) || ', ' || quote(stat) AS line FROM sqlite_stat1 "
                        "ORDER BY line") == StatisticsRows();
}

std::vector<std::string> DropStatistics(Database& database) {
  std::vector<std::string> statements;
  for (const std::string& table : database.Texts(StatisticsTables)) {
    statements.push_back("DROP TABLE " + table);
  }
  return statements;
}

TuneStep WriteStatistics(Database& database) {
  TuneStep step = {"statistics", "sqlite_stat1", "replace", DropStatistics(database),
                   "SQLite plans for a large directory from the start: with the figures of a small or lopsided one it "
                   "would go on reading whole tables as the directory grows"};
  step.statements.emplace_back("ANALYZE sqlite_master"); // makes the table, analyses nothing
  for (const std::string& row : StatisticsRows()) {
    step.statements.push_back("INSERT INTO sqlite_stat1(tbl, idx, stat) VALUES(" + row + ")");
  }
  step.statements.emplace_back("ANALYZE sqlite_master"); // now reads it
  return step;
}

TuneStep SetJournalMode(const std::string& mode, const std::string& why) {
  return {"journal_mode", mode, "set", {"PRAGMA journal_mode = " + mode}, why};
}

/// Throws when the plan that SQLite makes for a statement holds what it must not.
void CheckPlan(Database& database, const std::string& statement, const char* unwanted) {
  std::string plan;
  Statement(database, "EXPLAIN QUERY PLAN " + statement).ForEach({}, [&plan](const Perenna::PListDict& row) {
    plan += (plan.empty() ? "" : "; ") + Field(row, "detail");
  });
  if (plan.find(unwanted) != std::string::npos) {
    throw Failure(Failure::Kind::System, "SQLite " + std::string(sqlite3_libversion()) + " would run \"" + statement +
                                             "\" as \"" + Shown(plan) +
                                             "\", which is not what the indexes are for; nothing was changed");
  }
}

void CheckPlans(Database& database) {
  // Only planned, never run: the real one is the module's.
  sqlite3_create_function(
      database.Handle(), "regexp", 2, SQLITE_UTF8, nullptr,
      [](sqlite3_context* context, int, sqlite3_value**) { sqlite3_result_int(context, 0); }, nullptr, nullptr);
  for (const char* const statement : Listings) {
    CheckPlan(database, statement, "perenna_tune_");
  }
  for (const char* const statement : Lookups) {
    CheckPlan(database, statement, "SCAN ");
  }
}

void RunAll(Database& database, const std::vector<TuneStep>& steps, const std::string& what) {
  for (const TuneStep& step : steps) {
    if (step.what == what) {
      for (const std::string& statement : step.statements) {
        database.Run(statement);
      }
    }
  }
}

bool HasStep(const std::vector<TuneStep>& steps, const std::string& what) {
  return std::any_of(steps.begin(), steps.end(), [&what](const TuneStep& step) { return step.what == what; });
}

} // namespace

Json TuneStep::ToJson() const {
  return {{"what", what}, {"name", JsonText(name)}, {"change", change}, {"sql", statements}, {"why", why}};
}

bool IsTuned(Database& database) {
  return std::all_of(Indexes.begin(), Indexes.end(), [&](const Index& index) { return IsInPlace(database, index); });
}

std::vector<TuneStep> StepsToTune(Database& database) {
  std::vector<TuneStep> steps;
  for (const std::string& name : database.Texts(OwnIndexes)) {
    const bool current = std::any_of(Indexes.begin(), Indexes.end(), [&](const Index& index) {
      return index.name == name && IsInPlace(database, index);
    });
    if (!current) {
      steps.push_back(DropIndex(name, "it was made by another version of tune"));
    }
  }
  for (const Index& index : Indexes) {
    if (!IsInPlace(database, index)) {
      steps.push_back({"index", index.name, "create", {CreateStatement(index)}, index.why});
    }
  }
  if (!steps.empty() || !HasStatistics(database)) {
    steps.push_back(WriteStatistics(database));
  }
  if (JournalMode(database) != WriteAheadLog) {
    steps.push_back(SetJournalMode(WriteAheadLog,
                                   "decisions and changes no longer wait for each other. While the file is open, two "
                                   "files whose names end in -wal and -shm lie beside it: every program that opens it "
                                   "needs write permission in its directory, which must be on a local disk"));
  }
  return steps;
}

std::vector<TuneStep> StepsToUndo(Database& database) {
  std::vector<TuneStep> steps;
  for (const std::string& name : database.Texts(OwnIndexes)) {
    steps.push_back(DropIndex(name, "tune made it"));
  }
  if (steps.empty()) {
    return steps; // tune makes its indexes first: without one, nothing else is its work
  }
  if (std::vector<std::string> statements = DropStatistics(database); !statements.empty()) {
    steps.push_back({"statistics", "sqlite_stat1", "drop", std::move(statements), "tune made them"});
  }
  if (JournalMode(database) == WriteAheadLog) {
    steps.push_back(SetJournalMode(RollbackJournal, "it is the mode of a new file"));
  }
  return steps;
}

void Tune(Database& database, const std::vector<TuneStep>& steps) {
  const bool switches = HasStep(steps, "journal_mode");
  if (switches) {
    // From the end of the transaction on, the file stays locked for this connection: the switch cannot find it busy.
    database.Run("PRAGMA locking_mode = EXCLUSIVE");
  }
  if (HasStep(steps, "index") || HasStep(steps, "statistics")) {
    Transaction transaction(database);
    RunAll(database, steps, "index");
    RunAll(database, steps, "statistics");
    CheckPlans(database);
    transaction.Commit();
  }
  if (switches) {
    database.Number("SELECT count(*) FROM version_info"); // takes the lock when there was no transaction
    database.Run("PRAGMA locking_mode = NORMAL");         // gives it back after the switch
    RunAll(database, steps, "journal_mode");
  }
}

void Undo(Database& database, const std::vector<TuneStep>& steps) {
  if (HasStep(steps, "journal_mode")) {
    database.Run("PRAGMA locking_mode = EXCLUSIVE");
    try {
      RunAll(database, steps, "journal_mode");
    } catch (const Failure& failure) {
      throw Failure(failure.What(), failure.what() + std::string("; the journal mode can be set back only while no "
                                                                 "other program, such as the server, has it open"));
    }
  }
  Transaction transaction(database);
  RunAll(database, steps, "index");
  RunAll(database, steps, "statistics");
  transaction.Commit();
}

void CheckWriteAheadLog(const std::string& file) {
  try {
    Database database(file, Database::Access::Write);
    if (JournalMode(database) == WriteAheadLog) {
      try {
        const Transaction probe(database);
      } catch (const Failure&) {
        if ((sqlite3_errcode(database.Handle()) & 0xff) != SQLITE_BUSY) { // who writes there proves that it works
          throw;
        }
      }
      return;
    }
  } catch (const Failure&) {
    // A connection that is exclusive before it reads shares no memory.
    sqlite3* handle = nullptr;
    if (sqlite3_open_v2(file.c_str(), &handle, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK) {
      sqlite3_exec(handle, "PRAGMA locking_mode = EXCLUSIVE; PRAGMA journal_mode = DELETE", nullptr, nullptr, nullptr);
    }
    sqlite3_close_v2(handle);
  }
  throw Failure(Failure::Kind::System,
                "write-ahead logging does not work where the database " + Quoted(file) +
                    " is, and its journal mode was set back; indexes and statistics are in place");
}

} // namespace AccessDirectory
