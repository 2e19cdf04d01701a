// tune: what it changes, that the module then reads less and answers the same, and that it can be taken back.

#include <algorithm>
#include <filesystem>
#include <map>
#include <sstream>

#include <gmock/gmock.h>

#include "LocalAccessManager.h"
#include "directory/member/MemberListing.h"
#include "ToolDirectory.h"

namespace Testing {

namespace {

using LocalAccessManager::UserManager;

constexpr const char* Thumbprint = "AAECAwQFBgcICQoLDA0ODxAREhM=";

/// What a statement of the module cost, as SQLite counts it.
struct Cost {
  int scanned = 0; ///< rows stepped over in reading a whole table
  int sorted = 0;
  int steps = 0; ///< of SQLite's virtual machine
};
using Costs = std::map<std::string, Cost>; // by statement

Costs* s_costs = nullptr;

int CountCost(unsigned /*event*/, void* /*context*/, void* statement, void* /*nanoseconds*/) {
  auto* const handle = static_cast<sqlite3_stmt*>(statement);
  if (s_costs != nullptr) {
    Cost& cost = (*s_costs)[sqlite3_sql(handle)];
    cost.scanned += sqlite3_stmt_status(handle, SQLITE_STMTSTATUS_FULLSCAN_STEP, 0);
    cost.sorted += sqlite3_stmt_status(handle, SQLITE_STMTSTATUS_SORT, 0);
    cost.steps += sqlite3_stmt_status(handle, SQLITE_STMTSTATUS_VM_STEP, 0);
  }
  return 0;
}

int WatchConnection(sqlite3* handle, char** /*error*/, const sqlite3_api_routines* /*routines*/) {
  return sqlite3_trace_v2(handle, SQLITE_TRACE_PROFILE, CountCost, nullptr);
}

/// Counts the cost of every statement while it lives, on connections that are opened meanwhile.
class Watch {
public:
  Watch() {
    s_costs = &costs;
    sqlite3_auto_extension(reinterpret_cast<void (*)()>(WatchConnection));
  }
  ~Watch() {
    sqlite3_reset_auto_extension();
    s_costs = nullptr;
  }

  Costs costs;
};

void Open(UserManager& manager, const std::string& file) {
  ASSERT_EQ(manager.InitUserManager(Dict({{"DatabaseFilename", file}})), Tarn::RESULT_OK);
}

/// Everything that the module can be asked about a directory, and every deletion, as one text.
std::string Transcript(const std::string& file) {
  UserManager manager;
  Open(manager, file);
  std::ostringstream text;
  text << std::boolalpha;
  const auto list_all = [&] {
    for (const auto operation : {&UserManager::GetUsers, &UserManager::GetGroups, &UserManager::GetFilters}) {
      Perenna::PagedResults::ResultState page(Perenna::PagedResults::RS_MAXROWS);
      Perenna::PListDict listing;
      std::string json;
      text << (manager.*operation)(page, listing).label << listing.EncodeJSON(json).label << json << '\n';
    }
  };
  list_all();
  for (const std::string user : {"u1", "u2", "u3"}) {
    for (const char* const url : {"/a/7", "/b", "/"}) {
      Perenna::PListArray methods;
      text << manager.TestRequestForUser(Perenna::HTTPRequest(Perenna::METH_GET, url), user)
           << manager.TestRequestForUser(Perenna::HTTPRequest(Perenna::METH_PUT, url), user)
           << manager.GetOptionsMethods(Perenna::HTTPRequest(Perenna::METH_OPTIONS, url), user, methods)
           << ::testing::PrintToString(Texts(methods)) << '\n';
    }
  }
  Perenna::X509Thumbprint thumbprint;
  EXPECT_TRUE(thumbprint.DecodeBase64(Thumbprint));
  std::string found = "nobody";
  const auto filter = Dict({{"method", "GET"}, {"group_id", "g1"}, {"filter", "^/a"}, {"action", "Allow"}});
  text << manager.TestUserCertificate(Perenna::HTTPRequest(Perenna::METH_GET, "/"),
                                      Perenna::X509Certificate(thumbprint), found)
       << found << manager.SetUserGroups("u1", Array({"g2", "g1"})).label
       << manager.SetGroupUsers("g1", Array({"u2", "u1"})).label << manager.CreateFilter(filter).label
       << manager.DeleteFilter(filter).label << manager.DeleteUser("u3").label << manager.DeleteGroup("g3").label
       << '\n';
  list_all();
  return text.str();
}

/// Whether the module's listings may read the statement's table from end to end: that is what they are for.
bool IsListing(const std::string& sql) {
  return sql.rfind("SELECT * FROM ", 0) == 0 && sql.find("WHERE") == std::string::npos;
}

} // namespace

class Tune : public ToolDirectory {
protected:
  /// Adds filters: twenty a group, five of them for GET; a user for five filters, in three groups each.
  void Fill(int filters) const {
    const std::string count = std::to_string(filters);
    const std::string groups = std::to_string(filters / 20);
    const std::string numbers = "WITH RECURSIVE n(i) AS (VALUES(0) UNION ALL SELECT i + 1 FROM n LIMIT ";
    Sql("BEGIN;" + numbers + groups + ") INSERT INTO groups SELECT 'g' || i, 'Group' FROM n;" + numbers + count +
        "/ 5) INSERT INTO users SELECT 'u' || i, 'tls_client_certificate', 't' || i, 'd', 'root' FROM n;" + numbers +
        count + "/ 5) INSERT INTO groupusers SELECT 'g' || ((i + k * 7) % " + groups +
        "), 'u' || i FROM n, (SELECT 0 AS k UNION ALL SELECT 1 UNION ALL SELECT 2);" + numbers + count +
        ") INSERT INTO filters SELECT substr('GETPUT', 1 + 3 * (i % 4 > 0), 3), 'g' || ((i / 4) % " + groups +
        "), '^/area' || i || '(/|$)', 'Allow' FROM n;"
        "INSERT INTO users VALUES('certified', 'tls_client_certificate', '" +
        Thumbprint + "', 'd', 'root'); COMMIT");
  }

  void Refill(int filters) const {
    Sql("DELETE FROM users WHERE user_id <> 'root'; DELETE FROM groups; DELETE FROM groupusers; DELETE FROM filters");
    Fill(filters);
  }

  std::string JournalMode() const { return Query("PRAGMA journal_mode")[0][0]; }
  std::vector<BareDatabase::Row> Schema() const { return Query("SELECT name, sql FROM sqlite_master ORDER BY name"); }

  /// What the statements of a whole transcript cost on the file as it is.
  Costs CostsNow() const {
    const Watch watch;
    Transcript(File());
    return watch.costs;
  }
  /// The statements that read a table from end to end, or sort.
  static std::string ReadsWhole(const Costs& costs) {
    std::string statements;
    for (const auto& [sql, cost] : costs) {
      statements += (IsListing(sql) || cost.scanned == 0) && cost.sorted == 0 ? "" : sql + '\n';
    }
    return statements;
  }
};

TEST_F(Tune, ADecisionReadsOnlyTheUsersOwnFiltersHoweverManyThereAre) {
  Fill(1000);
  EXPECT_NE(ReadsWhole(CostsNow()), "") << "the costs cannot be counted";
  ASSERT_EQ(Tool({"tune"}).status, 0);
  std::vector<Costs> tuned;
  for (const int filters : {1000, 10000}) {
    Refill(filters);
    tuned.push_back(CostsNow());
    EXPECT_EQ(ReadsWhole(tuned.back()), "");
    EXPECT_GE(tuned.back().size(), 17U); // the module's statements
  }
  for (const auto& [sql, cost] : tuned.back()) {
    if (sql.find("REGEXP") != std::string::npos) {
      const int small = tuned.front()[sql].steps;
      EXPECT_NEAR(cost.steps, small, small * 0.01) << "the work grew with the directory: " << sql;
    }
  }
}

// What is left in a log beside the file is missed by a copy of it, and comes back to life in another.
TEST_F(Tune, CommandsLeaveNothingBesideTheFileHoweverTheyEnd) {
  const std::string thumbprint(40, 'a');
  ASSERT_EQ(Tool("tune").status, 0);
  for (const Arguments& command :
       std::vector<Arguments>{"group add g",
                              "user list",
                              "check root GET /",
                              "user add root",
                              "filter add none Allow GET ^/",
                              "group ad",
                              {"user", "add", "first", "--thumbprint", thumbprint},
                              {"user", "set-certificate", "root", "--thumbprint", thumbprint}}) {
    const ToolResult ended = Tool(command);
    EXPECT_THAT(Names(Place()), ::testing::ElementsAre("access.db")) << ended.err;
  }
  Run({{{"user", "set-certificate", "root", "--thumbprint", thumbprint}, 1, "", "is that of user \"first\""}});
  EXPECT_TRUE(Login("root", "root"));
}

TEST_F(Tune, EveryAnswerStaysTheSame) {
  const CaptureLog quiet;
  Fill(200); // in an order that is not that of the ids, with repetitions and everything that filters may hold
  Sql("UPDATE users SET rowid = (rowid * 31) % 43 + 100; UPDATE groups SET rowid = (rowid * 7) % 11 + 20;"
      "INSERT INTO groupusers SELECT group_id, user_id FROM groupusers WHERE rowid % 3 = 0;"
      "INSERT INTO filters SELECT 'GET', 'g' || (rowid % 12), substr('^/a ^/b$/   (   ', 1 + 4 * (rowid % 4), 4), "
      "'Deny' FROM filters WHERE rowid % 9 = 0; UPDATE filters SET filter = trim(filter);"
      "UPDATE filters SET filter = '^/a' WHERE rowid % 3 = 0; UPDATE filters SET action = 'allow' WHERE rowid % 11 = 0;"
      "DELETE FROM filters WHERE rowid % 5 = 0");
  const std::string tuned = PathBeside("tuned");
  std::filesystem::copy_file(File(), tuned);
  ASSERT_EQ(RunTool(tuned, {"tune"}).status, 0);
  const std::string plain = Transcript(File());
  EXPECT_NE(plain.find("true"), std::string::npos) << plain;
  EXPECT_EQ(Transcript(tuned), plain);
}

TEST_F(Tune, SaysWhatItWouldDoAndWhatItDidAndDoesItOnce) {
  Fill(100);
  const std::string before = Contents(File());
  const ToolResult dry = Tool({"tune", "--dry-run"});
  EXPECT_EQ(dry.out.rfind("create index perenna_tune_filters: ", 0), 0U) << dry.out;
  EXPECT_EQ(Contents(File()), before);
  EXPECT_EQ(Names(Place()), std::vector<std::string>{"access.db"});

  const ToolResult done = Tool({"tune"});
  EXPECT_EQ(done.out.rfind("created index perenna_tune_filters: ", 0), 0U) << done.out << done.err;
  EXPECT_NE(done.out.find("\nset journal mode to wal: "), std::string::npos) << done.out;
  EXPECT_EQ(JournalMode(), "wal");

  const std::string tuned = Contents(File());
  EXPECT_EQ(Tool({"tune"}).out, "The file is tuned already.\n");
  EXPECT_EQ(Contents(File()), tuned);
  EXPECT_EQ(Json({"tune"})["changes"].size(), 0U);
}

TEST_F(Tune, ListsSayWhatTheModuleSaysAndReadTheMembershipsOnceWithoutIndexesToo) {
  Fill(1000);
  Sql("INSERT INTO groupusers SELECT group_id, user_id FROM groupusers WHERE rowid % 7 = 0; INSERT INTO groupusers "
      "VALUES('gone', 'u1'), ('g1', 'gone'); UPDATE users SET rowid = 1000 - rowid");
  UserManager manager;
  Open(manager, File());
  for (const auto& [noun, operation] :
       {std::pair("user", &UserManager::GetUsers), std::pair("group", &UserManager::GetGroups)}) {
    Perenna::PagedResults::ResultState page(20);
    page.Skip = 3;
    Perenna::PListDict listing;
    std::string expected;
    EXPECT_EQ((manager.*operation)(page, listing), Tarn::RESULT_OK);
    EXPECT_EQ(listing.EncodeJSON(expected), Tarn::RESULT_OK);
    nlohmann::json module = nlohmann::json::parse(expected);
    for (auto& row : module["results"]) {
      row.erase("auth_value");
    }
    EXPECT_EQ(nlohmann::json(Json({noun, "list", "--skip=3", "--limit=20"})), module);
  }
  const Watch watch;
  AccessDirectory::Database database(File(), AccessDirectory::Database::Access::Read);
  AccessDirectory::Progress progress;
  const auto users = ListWithMembers(database, AccessDirectory::Users, 0, 1000, progress);
  EXPECT_EQ(users.rows.Count(), 202U);
  for (const auto& [sql, cost] : watch.costs) {
    EXPECT_LT(cost.scanned, 1000) << sql;
  }
}

TEST_F(Tune, UndoTakesBackWhatTuneMadeAndNothingElse) {
  Fill(100);
  Sql("CREATE INDEX theirs ON filters(action)");
  const auto schema = Schema();
  const auto rows = Query("SELECT rowid, * FROM filters");
  ASSERT_EQ(Tool({"tune"}).status, 0);
  EXPECT_NE(Schema(), schema);
  EXPECT_EQ(Json({"tune", "--undo"})["changes"].size(), 6U);
  EXPECT_EQ(Schema(), schema);
  EXPECT_EQ(Query("SELECT rowid, * FROM filters"), rows);
  EXPECT_EQ(JournalMode(), "delete");

  Sql("PRAGMA journal_mode = WAL; ANALYZE"); // somebody's own
  EXPECT_EQ(Tool({"tune", "--undo"}).out, "There is nothing of tune's to take back.\n");
  EXPECT_EQ(JournalMode(), "wal");
  EXPECT_NE(Query("SELECT count(*) FROM sqlite_stat1")[0][0], "0");
}

// Statistics that SQLite gathers itself make it read whole tables: of a directory that was small, or has one group.
TEST_F(Tune, IndexesOfAnotherVersionAndMisleadingStatisticsAreReplaced) {
  Sql("CREATE INDEX perenna_tune_filters ON filters(filter); CREATE INDEX \"perenna_tune_\"\"odd\" ON filters(action)");
  Fill(20);
  ASSERT_EQ(Tool({"tune"}).status, 0);
  EXPECT_EQ(Query("SELECT count(*) FROM sqlite_master WHERE name GLOB 'perenna_tune_*'")[0][0], "4");
  Sql("ANALYZE");
  Refill(2000);
  EXPECT_NE(ReadsWhole(CostsNow()), "") << "this SQLite is not misled: the test proves nothing";
  const auto report = Json({"tune"});
  ASSERT_EQ(report["changes"].size(), 1U) << report.dump();
  EXPECT_EQ(report["changes"][0]["what"], "statistics");
  Refill(2000);
  EXPECT_EQ(ReadsWhole(CostsNow()), "");
}

TEST_F(Tune, AServerThatHasTheFileOpenKeepsWorkingAndGains) {
  Fill(1000);
  Watch watch;
  UserManager server;
  Open(server, File());
  const auto asks = [&server] {
    return server.TestRequestForUser(Perenna::HTTPRequest(Perenna::METH_GET, "/area4/x"), "u1") &&
           !server.TestRequestForUser(Perenna::HTTPRequest(Perenna::METH_PUT, "/area4/x"), "u1");
  };
  EXPECT_TRUE(asks());
  EXPECT_EQ(Tool({"tune"}).status, 0);
  watch.costs.clear();
  EXPECT_TRUE(asks());
  EXPECT_EQ(ReadsWhole(watch.costs), "");

  const auto schema = Schema();
  Run({{{"tune", "--undo"}, 3, "", "only while no other program, such as the server, has it open"}});
  EXPECT_EQ(Schema(), schema);
  EXPECT_EQ(JournalMode(), "wal");
  EXPECT_TRUE(asks());
}

TEST_F(Tune, ABusyFileIsLeftAsItIs) {
  Fill(20);
  const auto schema = Schema();
  for (const char* const lock : {"BEGIN IMMEDIATE", "BEGIN; SELECT count(*) FROM users"}) { // a writer, and a reader
    BareDatabase other(File());
    other.Run(lock);
    Run({{{"tune"}, 3, "", "is busy: another program holds it locked; nothing was changed"}});
    other.Run("COMMIT");
    EXPECT_EQ(Schema(), schema) << lock;
    EXPECT_EQ(JournalMode(), "delete") << lock;
  }
}

TEST_F(Tune, WithoutSharedMemoryTheJournalModeStays) {
  Fill(100);
  std::filesystem::create_directory(File() + "-shm"); // in the way of the file that is shared
  Run({{{"tune"}, 3, "", "its journal mode was set back"}});
  EXPECT_EQ(JournalMode(), "delete");
  EXPECT_EQ(ReadsWhole(CostsNow()), "");
}

} // namespace Testing
