// tune: what it changes, that the module then reads less and answers the same, and that it can be taken back.

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <map>
#include <random>

#include "LocalAccessManager.h"
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
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;

  Costs costs;
};

void Open(UserManager& manager, const std::string& file) {
  ASSERT_EQ(manager.InitUserManager(Dict({{"DatabaseFilename", file}})), Tarn::RESULT_OK);
}

std::string Answer(bool answer) {
  return answer ? "yes\n" : "no\n";
}

/// Everything that the module can be asked about a directory, and every deletion, as one text.
std::string Transcript(UserManager& manager, const std::vector<std::string>& users,
                       const std::vector<std::string>& groups) {
  std::string text;
  const auto list =
      [&](Tarn::Result_t (UserManager::*operation)(Perenna::PagedResults::ResultState&, Perenna::PListDict&)) {
        Perenna::PagedResults::ResultState page(Perenna::PagedResults::RS_MAXROWS);
        Perenna::PListDict listing;
        text += std::string((manager.*operation)(page, listing).label) + " ";
        std::string json;
        EXPECT_EQ(listing.EncodeJSON(json), Tarn::RESULT_OK);
        text += json + "\n";
      };
  const auto list_all = [&] {
    list(&UserManager::GetUsers);
    list(&UserManager::GetGroups);
    list(&UserManager::GetFilters);
  };
  list_all();
  for (const std::string& user : users) {
    for (const char* const url : {"/a/7", "/b", "/"}) {
      text += Answer(manager.TestRequestForUser(Perenna::HTTPRequest(Perenna::METH_GET, url), user));
      text += Answer(manager.TestRequestForUser(Perenna::HTTPRequest(Perenna::METH_PUT, url), user));
      Perenna::PListArray methods;
      text += Answer(manager.GetOptionsMethods(Perenna::HTTPRequest(Perenna::METH_OPTIONS, url), user, methods));
      text += ::testing::PrintToString(Texts(methods)) + "\n";
    }
  }
  Perenna::X509Thumbprint thumbprint;
  EXPECT_TRUE(thumbprint.DecodeBase64(Thumbprint));
  std::string found = "nobody";
  text += Answer(manager.TestUserCertificate(Perenna::HTTPRequest(Perenna::METH_GET, "/"),
                                             Perenna::X509Certificate(thumbprint), found));
  text += found + "\n";
  text += manager.SetUserGroups(users[0], Array({groups[1], groups[0]})).label;
  text += manager.SetGroupUsers(groups[0], Array({users[1], users[0]})).label;
  text +=
      manager.CreateFilter(Dict({{"method", "GET"}, {"group_id", groups[0]}, {"filter", "^/a"}, {"action", "Allow"}}))
          .label;
  text +=
      manager.DeleteFilter(Dict({{"method", "GET"}, {"group_id", groups[0]}, {"filter", "^/a"}, {"action", "Allow"}}))
          .label;
  text += manager.DeleteUser(users[2]).label;
  text += manager.DeleteGroup(groups[2]).label;
  text += "\n";
  list_all();
  return text;
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
    UserManager manager;
    Open(manager, File());
    Transcript(manager, {"u1", "u2", "u3"}, {"g1", "g2", "g3"});
    return watch.costs;
  }

  static void ExpectNoTableIsReadWhole(const Costs& costs) {
    EXPECT_GE(costs.size(), 17U); // the module's statements
    for (const auto& [sql, cost] : costs) {
      EXPECT_TRUE(IsListing(sql) || cost.scanned == 0) << sql << " scanned " << cost.scanned << " rows";
      EXPECT_EQ(cost.sorted, 0) << sql;
    }
  }
};

TEST_F(Tune, ADecisionReadsOnlyTheUsersOwnFiltersHoweverManyThereAre) {
  std::vector<Costs> tuned;
  for (const int filters : {1000, 10000}) {
    Refill(filters);
    if (tuned.empty()) {
      const Costs before = CostsNow();
      EXPECT_TRUE(std::any_of(before.begin(), before.end(), [](const auto& entry) {
        return !IsListing(entry.first) && entry.second.scanned > 1000;
      })) << "the costs cannot be counted";
      Refill(filters);
      ASSERT_EQ(Tool({"tune"}).status, 0);
    }
    tuned.push_back(CostsNow());
    ExpectNoTableIsReadWhole(tuned.back());
  }
  for (const auto& [sql, cost] : tuned.back()) {
    if (sql.find("REGEXP") != std::string::npos) {
      const int small = tuned.front()[sql].steps;
      EXPECT_NEAR(cost.steps, small, small * 0.01) << "the work grew with the directory: " << sql;
    }
  }
}

TEST_F(Tune, PatternsOfOtherGroupsAndMethodsAreNotTried) {
  Fill(1000);
  Sql("UPDATE filters SET filter = '('"); // each one that is tried is logged
  ASSERT_EQ(Tool({"tune"}).status, 0);
  UserManager manager;
  Open(manager, File());
  CaptureLog log;
  EXPECT_FALSE(manager.TestRequestForUser(Perenna::HTTPRequest(Perenna::METH_GET, "/"), "u1"));
  EXPECT_EQ(log.Take().size(), 15U); // three groups, five filters for GET each
}

TEST_F(Tune, EveryAnswerStaysTheSame) {
  const CaptureLog quiet;
  for (unsigned seed = 0; seed < 8; ++seed) {
    std::mt19937 random(seed);
    const auto pick = [&random](const std::vector<std::string>& texts) { return texts[random() % texts.size()]; };
    const std::vector<std::string> users = {"u0", "u1", "u2", "u3", "u4"};
    const std::vector<std::string> groups = {"g0", "g1", "g2", "g3"};
    const std::string plain = PathBeside("plain" + std::to_string(seed));
    const std::string tuned = PathBeside("tuned" + std::to_string(seed));
    std::filesystem::copy_file(File(), plain);
    BareDatabase database(plain);
    database.Run("BEGIN; DELETE FROM users");
    std::vector<std::string> shuffled = users;
    std::shuffle(shuffled.begin(), shuffled.end(), random);
    for (const std::string& user : shuffled) {
      database.Query("INSERT INTO users VALUES(?, ?, ?, 'd', 'u0')",
                     {user, pick({"tls_client_certificate", "plain_pw"}), pick({Thumbprint, "other"})});
    }
    shuffled = groups;
    std::shuffle(shuffled.begin(), shuffled.end(), random);
    for (const std::string& group : shuffled) {
      database.Query("INSERT INTO groups VALUES(?, 'Group')", {group});
    }
    for (int i = 0; i < 12; ++i) {
      database.Query("INSERT INTO groupusers VALUES(?, ?)", {pick(groups), pick(users)}); // some twice
      database.Query("INSERT INTO filters VALUES(?, ?, ?, ?)",
                     {pick({"GET", "PUT", "get"}), pick({"g0", "g1", "g2", "g3", "gone"}),
                      pick({"^/a", "/", "^/b$", "(", ""}), pick({"Allow", "Allow", "Deny", "allow"})});
    }
    database.Run("DELETE FROM filters WHERE rowid % 5 = 0; COMMIT");
    std::filesystem::copy_file(plain, tuned);
    const ToolResult result = RunTool(tuned, {"tune"});
    ASSERT_EQ(result.status, 0) << result.err;
    UserManager plain_manager;
    UserManager tuned_manager;
    Open(plain_manager, plain);
    Open(tuned_manager, tuned);
    EXPECT_EQ(Transcript(tuned_manager, users, groups), Transcript(plain_manager, users, groups)) << "seed " << seed;
  }
}

TEST_F(Tune, TellsFirstAndIsDoneOnce) {
  Fill(100);
  const std::string before = Contents(File());
  const ToolResult dry = Tool({"tune", "--dry-run"});
  EXPECT_EQ(dry.status, 0);
  EXPECT_EQ(Contents(File()), before);
  EXPECT_EQ(Names(Place()), std::vector<std::string>{"access.db"});

  const ToolResult done = Tool({"tune"});
  EXPECT_EQ(done.status, 0) << done.err;
  const auto steps = [](const ToolResult& result) {
    return result.out.substr(0, result.out.rfind('\n', result.out.size() - 2));
  };
  EXPECT_EQ(steps(done), steps(dry));
  EXPECT_EQ(JournalMode(), "wal");

  const std::string tuned = Contents(File());
  const ToolResult again = Tool({"tune"});
  EXPECT_EQ(again.status, 0);
  EXPECT_EQ(again.out, "The file is tuned already.\n");
  EXPECT_EQ(Contents(File()), tuned);
  EXPECT_EQ(Json({"tune"})["changes"].size(), 0U);
}

TEST_F(Tune, UndoTakesBackWhatTuneMadeAndNothingElse) {
  Fill(100);
  Sql("CREATE INDEX theirs ON filters(action)");
  const auto schema = Schema();
  const auto rows = Query("SELECT rowid, * FROM filters");
  ASSERT_EQ(Tool({"tune"}).status, 0);
  EXPECT_NE(Schema(), schema);
  const auto report = Json({"tune", "--undo"});
  EXPECT_EQ(report["changes"].size(), 6U) << report.dump();
  EXPECT_EQ(report["done"], true);
  EXPECT_EQ(Schema(), schema);
  EXPECT_EQ(Query("SELECT rowid, * FROM filters"), rows);
  EXPECT_EQ(JournalMode(), "delete");

  Sql("PRAGMA journal_mode = WAL; ANALYZE"); // somebody's own
  EXPECT_EQ(Tool({"tune", "--undo"}).out, "There is nothing of tune's to take back.\n");
  EXPECT_EQ(JournalMode(), "wal");
  EXPECT_EQ(Query("SELECT count(*) FROM sqlite_stat1")[0][0] == "0", false);
}

// Statistics that SQLite gathers itself make it read whole tables: of a directory that was small, or has one group.
TEST_F(Tune, MisleadingStatisticsAreReplaced) {
  Fill(20);
  ASSERT_EQ(Tool({"tune"}).status, 0);
  Sql("ANALYZE");
  Refill(2000);
  const Costs misled = CostsNow();
  EXPECT_TRUE(std::any_of(misled.begin(), misled.end(), [](const auto& entry) {
    return !IsListing(entry.first) && entry.second.scanned > 0;
  })) << "this SQLite is not misled: the test proves nothing";
  const auto report = Json({"tune"});
  ASSERT_EQ(report["changes"].size(), 1U) << report.dump();
  EXPECT_EQ(report["changes"][0]["what"], "statistics");
  Refill(2000);
  ExpectNoTableIsReadWhole(CostsNow());
}

TEST_F(Tune, IndexesOfAnotherVersionAreReplaced) {
  Sql("CREATE INDEX perenna_tune_filters ON filters(filter); CREATE INDEX \"perenna_tune_\"\"odd\" ON filters(action)");
  ASSERT_EQ(Tool({"tune"}).status, 0);
  Fill(100);
  ExpectNoTableIsReadWhole(CostsNow());
  EXPECT_EQ(Query("SELECT count(*) FROM sqlite_master WHERE name GLOB 'perenna_tune_*'")[0][0], "4");
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
  const ToolResult tuned = Tool({"tune"});
  EXPECT_EQ(tuned.status, 0) << tuned.err;
  watch.costs.clear();
  EXPECT_TRUE(asks());
  for (const auto& [sql, cost] : watch.costs) {
    EXPECT_EQ(cost.scanned, 0) << sql;
  }

  const auto schema = Schema();
  const ToolResult undone = Tool({"tune", "--undo"});
  EXPECT_EQ(undone.status, 3);
  EXPECT_NE(undone.err.find("only while no other program, such as the server, has it open"), std::string::npos)
      << undone.err;
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
    const ToolResult result = Tool({"tune"});
    EXPECT_EQ(result.status, 3) << lock;
    EXPECT_NE(result.out.find("CREATE INDEX"), std::string::npos) << "the plan comes first";
    EXPECT_NE(result.err.find("is busy: another program holds it locked; nothing was changed"), std::string::npos)
        << lock << ": " << result.err;
    other.Run("COMMIT");
    EXPECT_EQ(Schema(), schema) << lock;
    EXPECT_EQ(JournalMode(), "delete") << lock;
  }
}

TEST_F(Tune, WithoutSharedMemoryTheJournalModeStays) {
  Fill(100);
  std::filesystem::create_directory(File() + "-shm"); // in the way of the file that is shared
  const ToolResult result = Tool({"tune"});
  EXPECT_EQ(result.status, 3);
  EXPECT_NE(result.err.find("its journal mode was set back"), std::string::npos) << result.err;
  EXPECT_EQ(JournalMode(), "delete");
  ExpectNoTableIsReadWhole(CostsNow());
}

TEST_F(Tune, AProcessKilledAtAnyMomentLeavesAUsableFile) {
  Fill(10000);
  const std::string plain = PathBeside("plain.db");
  std::filesystem::copy_file(File(), plain);
  for (int delay = 0; delay < 12; ++delay) {
    for (const char* const rest : {"", "-journal", "-wal", "-shm"}) {
      std::filesystem::remove(File() + rest);
    }
    std::filesystem::copy_file(plain, File());
    const pid_t process = StartTool(File(), {"tune"});
    Tarn::sleep_ms(static_cast<unsigned>(delay) * 6);
    kill(process, SIGKILL);
    WaitFor(process);
    EXPECT_EQ(Query("PRAGMA integrity_check")[0][0], "ok") << delay;
    UserManager server;
    Open(server, File());
    EXPECT_TRUE(server.TestRequestForUser(Perenna::HTTPRequest(Perenna::METH_GET, "/area4/x"), "u1")) << delay;
    EXPECT_EQ(Tool({"tune"}).status, 0) << delay;
    EXPECT_EQ(Tool({"tune"}).out, "The file is tuned already.\n") << delay;
  }
}

} // namespace Testing
