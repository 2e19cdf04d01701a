// The statement wrapper: results, rows, bindings, log lines, locked databases.

#include <chrono>

#include "Helpers.h"
#include "PN_Sqlite3.h"

using namespace Perenna;
using Sqlite3::SimpleQuery;
using Testing::Dict;
using Testing::Lines;
using Texts = std::vector<std::string>;

namespace {

/// The rest of the first column.
Texts Column(SimpleQuery& query) {
  Texts values;
  for (std::string value; query.GetNextResult(value);) {
    values.push_back(value);
  }
  return values;
}

/// The lines of `count` refused attempts, with the time-out after the ninth, and of what follows at Error.
Lines Expected(const std::string& what, std::size_t count, const Texts& errors = {}) {
  Lines lines(count, {Tarn::LOG_DEBUG, "Locked database, retrying \"" + what + "\".\n"});
  lines.resize(count < Sqlite3::LockAttempts ? count : count + 1, {Tarn::LOG_DEBUG, "Locked database, timed out.\n"});
  for (const std::string& error : errors) {
    lines.emplace_back(Tarn::LOG_ERROR, error);
  }
  return lines;
}

/// Two connections of one file with a table `t`: that of the code under test has not read the schema yet.
class Statements : public testing::Test {
protected:
  void SetUp() override { m_Other.Run("CREATE TABLE t (x UNIQUE); INSERT INTO t VALUES ('a'), ('b'), ('c')"); }
  void TearDown() override {
    EXPECT_EQ(m_Log.Take(), Lines{}) << "lines that the test did not expect";
    EXPECT_EQ(sqlite3_next_stmt(m_db, nullptr), nullptr) << "a statement was not finalised";
  }
  std::size_t Stored() { return m_Other.Query("SELECT x FROM t").size(); }

  Testing::TemporaryDirectory m_Directory;
  Testing::BareDatabase m_Other{m_Directory.File("db")};
  Testing::BareDatabase m_Database{m_Directory.File("db")};
  sqlite3* m_db = m_Database.Handle();
  Testing::CaptureLog m_Log;
};

} // namespace

TEST_F(Statements, WithoutRowsEndInFalseAndTouchNothing) {
  SimpleQuery query(m_db, "INSERT INTO t VALUES ('d')");
  EXPECT_FALSE(query.DiscardNextResult()) << "before Exec";
  EXPECT_EQ(query.Exec(), Tarn::RESULT_FALSE);
  PListDict dict;
  std::string value = "old";
  EXPECT_FALSE(query.GetNextResult(dict) || query.GetNextResult(value) || query.DiscardNextResult());
  EXPECT_TRUE(dict.size() == 0 && value == "old");
}

TEST_F(Statements, DeliverEveryRowOnceAndCanRunAgainWithoutTheirBindings) {
  SimpleQuery query(m_db, "SELECT * FROM t WHERE rowid >= coalesce(?, 3) ORDER BY rowid");
  ASSERT_EQ(query.Exec("1"), Tarn::RESULT_OK);
  PListDict row;
  EXPECT_TRUE(query.GetNextResult(row) && query.DiscardNextResult());
  EXPECT_EQ(row.GetData("x").GetValue(), "a");
  EXPECT_EQ(Column(query), Texts{"c"});
  m_Other.Run("ALTER TABLE t RENAME COLUMN x TO y");
  ASSERT_EQ(query.Exec(), Tarn::RESULT_OK);
  PListDict renamed;
  EXPECT_TRUE(query.GetNextResult(renamed));
  EXPECT_EQ(renamed.GetData("y").GetValue(), "c") << "under the name of this execution";
  m_Other.Run("ALTER TABLE t RENAME COLUMN y TO x");
}

TEST_F(Statements, RowsBecomeDictionariesAndTexts) {
  const std::tuple<std::string, ItemType_t, std::string, std::string> columns[] = {
      {"9223372036854775807", IT_INT64, "9223372036854775807", "9223372036854775807"},
      {"0.1", IT_REAL, "0.1", "0.1"},
      {"'a''b'", IT_STRING, "a'b", "a'b"},
      {"x'41424300444546474849'", IT_DATA, "QUJDAERFRkdISQ==", std::string("ABC\0DEFGHI", 10)},
      {"x''", IT_DATA, "", ""},
      {"NULL", IT_NULL, "", "unchanged"}};
  for (const auto& [sql, kind, in_row, as_text] : columns) {
    SimpleQuery query(m_db, "WITH v(c) AS (SELECT " + sql + ") SELECT c, 1 AS d FROM v UNION ALL SELECT c, 2 FROM v");
    ASSERT_EQ(query.Exec(), Tarn::RESULT_OK) << sql;
    PListDict row = Dict({{"c", "replaced"}, {"kept", "k"}});
    std::string value = "unchanged";
    EXPECT_TRUE(query.GetNextResult(row) && row.size() == 3 && row.GetData("c").HasType(kind)) << sql;
    EXPECT_EQ(row.GetData("c").GetValue(), in_row) << sql;
    EXPECT_TRUE(query.GetNextResult(value) && value == as_text) << sql << " as " << value;
  }
}

TEST_F(Statements, BindArgumentsByPositionOrByTheOrderOfTheNames) {
  SimpleQuery two(m_db, "SELECT typeof(?1) || ?1 || ?2");
  ASSERT_EQ(two.Exec("it's", std::string("b\0c", 3)), Tarn::RESULT_OK);
  EXPECT_EQ(Column(two), Texts{"textit'sb"}) << "texts end at their first NUL";
  SimpleQuery one(m_db, "SELECT 1 UNION ALL SELECT typeof(?1) || ?1"); // read after Exec has returned: copied
  ASSERT_EQ(one.Exec(X509Thumbprint()), Tarn::RESULT_OK);
  EXPECT_EQ(Column(one), (Texts{"1", "textAAAAAAAAAAAAAAAAAAAAAAAAAAA="}));
  const std::tuple<ItemType_t, std::string, std::string> items[] = {
      {IT_STRING, "it's", "text 'it''s'"},
      {IT_DATE, "2026-01-31", "text '2026-01-31'"},
      {IT_TRUE, "", "text 'true'"},
      {IT_FALSE, "x", "text 'false'"},
      {IT_INT, "-2147483648", "integer -2147483648"},
      {IT_INT, "9999999999", "integer 0"},
      {IT_INT64, "9223372036854775807", "integer 9223372036854775807"},
      {IT_REAL, "0.5", "real 0.5"},
      {IT_DATA, "AP8B", "blob X'00FF01'"},
      {IT_DATA, "not base64", "blob X''"},
      {IT_DATA, std::string(1000, 'A'), "blob X'" + std::string(1500, '0') + "'"}};
  for (const auto& [kind, text, bound] : items) {
    PListDict dict = Dict({{"a", "1"}, {"ignored", "2"}});
    dict.SetItem("z", new PListData(kind, text));
    dict.SetItem("y", new PListData(kind == IT_DATA ? IT_DATA : IT_STRING, kind == IT_DATA ? "AAAA" : ""));
    // Evaluated while stepping past the first row: what was bound must have been copied.
    SimpleQuery query(m_db, "SELECT 1 UNION ALL SELECT typeof(?1) || ' ' || quote(?1) || ?2 || substr(?3, 1, 0)");
    for (const char* name : {"z", "a", "y"}) {
      query.PushArgName(name);
    }
    ASSERT_EQ(query.Exec(dict), Tarn::RESULT_OK) << text;
    EXPECT_EQ(Column(query), (Texts{"1", bound + "1"}));
  }
}

TEST_F(Statements, WhatCannotBeBoundIsRefusedBeforeAnyStep) {
  SimpleQuery query(m_db, "INSERT INTO t VALUES ('x' || ?)");
  EXPECT_EQ(query.Exec(PListDict()), Tarn::RESULT_INIT);
  EXPECT_EQ(m_Log.Take(), Expected("", 0, {"ArgNames must be present to use PListDict input.\n"}));
  query.PushArgName("first");
  query.PushArgName("second"); // its placeholder does not exist, which is not logged
  SimpleQuery two(m_db, "INSERT INTO t VALUES (coalesce(?1, 'x') || ?2)");
  two.PushArgName("first");
  two.PushArgName("second");
  sqlite3_limit(m_db, SQLITE_LIMIT_LENGTH, 100); // a first text that fails must not be forgotten over the second
  for (const auto& [statement, first] : {std::pair(&query, std::string("1")), {&two, std::string(101, '1')}}) {
    EXPECT_EQ(statement->Exec(Dict({{"first", first}, {"second", "2"}})), RESULT_DB_FAILURE);
    EXPECT_EQ(statement->Exec(first, "2"), RESULT_DB_FAILURE);
  }
  EXPECT_EQ(m_Log.Take(), Lines{});
  const std::pair<PListItem*, std::string> refused[] = {
      {new PListDict, "Item type is not scalar.\n"},
      {new PListArray, "Item type is not scalar.\n"},
      {new PListData(IT_NULL, ""), "Unknown PList data type.\n"},
      {new PListData(static_cast<ItemType_t>(99), ""), "Unknown PList data type.\n"},
      {new PListData, "Dictionary arguments do not contain \"second\".\n"}};
  for (const auto& [item, line] : refused) {
    PListDict dict;
    dict.SetItem("first", item);
    EXPECT_EQ(query.Exec(dict), Tarn::RESULT_PARAM) << line;
    EXPECT_EQ(m_Log.Take(), Expected("", 0, {line}));
  }
  EXPECT_EQ(Stored(), 3U);
}

TEST_F(Statements, RefusedTextsAndStepErrorsAreLoggedAndLeaveTheStatementUsable) {
  SimpleQuery query(m_db, "INSERT INTO u VALUES (?)");
  for (int attempt = 0; attempt < 2; ++attempt) {
    EXPECT_EQ(query.Exec("a"), RESULT_DB_FAILURE);
    EXPECT_EQ(m_Log.Take(), Expected("", 0,
                                     {"Unable to prepare statement INSERT INTO u VALUES (?): no such table: u\n",
                                      "No prepared statement for query \"INSERT INTO u VALUES (?)\": PARAM (-5).\n"}));
  }
  m_Other.Run("ALTER TABLE t RENAME TO u");
  EXPECT_EQ(query.Exec("a"), RESULT_DB_FAILURE);
  EXPECT_EQ(m_Log.Take(), Expected("", 0,
                                   {"Error stepping statement INSERT INTO u VALUES (?): UNIQUE constraint "
                                    "failed: u.x\n"}));
  EXPECT_EQ(query.Exec(), Tarn::RESULT_FALSE);
  EXPECT_EQ(m_Other.Query("SELECT x FROM u WHERE x IS NULL").size(), 1U) << "bindings are cleared";
  EXPECT_EQ(SimpleQuery(m_db, "-- no statement").Exec(), RESULT_DB_FAILURE);
  EXPECT_EQ(m_Log.Take().size(), 1U);
  EXPECT_DEATH(SimpleQuery(nullptr, "SELECT 1"), "fatal: m_db!=0");
  EXPECT_DEATH(SimpleQuery(m_db, ""), "fatal: !m_QueryString\\.empty\\(\\)");
}

TEST_F(Statements, AnErrorWhileAdvancingIsSilentAndEndsTheRows) {
  Testing::ScriptedAnswer script(m_db, {SQLITE_OK, SQLITE_OK, SQLITE_ERROR});
  SimpleQuery query(m_db, "SELECT answer(x) AS x FROM t");
  ASSERT_EQ(query.Exec(), Tarn::RESULT_OK);
  PListDict row;
  std::string value;
  EXPECT_TRUE(query.GetNextResult(row));
  EXPECT_FALSE(query.GetNextResult(row)) << "copied, but not delivered";
  EXPECT_EQ(row.GetData("x").GetValue(), "b");
  EXPECT_FALSE(query.GetNextResult(row) || query.GetNextResult(value) || query.DiscardNextResult());
  EXPECT_EQ(sqlite3_next_stmt(m_db, nullptr), nullptr) << "finalised";
  ASSERT_EQ(query.Exec(), Tarn::RESULT_OK) << "prepares again";
  EXPECT_EQ(Column(query), (Texts{"a", "b", "c"}));
}

TEST_F(Statements, TimeOutAfterNineAttempts) {
  const auto begin = std::chrono::steady_clock::now();
  m_Other.Run("BEGIN EXCLUSIVE");
  SimpleQuery query(m_db, "INSERT INTO t VALUES ('d')");
  EXPECT_EQ(query.Exec(), RESULT_DB_FAILURE);
  EXPECT_EQ(m_Log.Take(), Expected("prepare", 9,
                                   {"No prepared statement for query \"INSERT INTO t VALUES ('d')\": "
                                    "DB_FAILURE (-420).\n"}));
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(900));
  m_Other.Run("COMMIT");
  m_Database.Query("SELECT * FROM t"); // reads the schema, so that preparing succeeds
  m_Other.Run("BEGIN IMMEDIATE");
  EXPECT_EQ(query.Exec(), RESULT_DB_FAILURE);
  EXPECT_EQ(m_Log.Take(), Expected("step", 9));
  m_Other.Run("COMMIT");
  EXPECT_EQ(query.Exec(), Tarn::RESULT_FALSE);
  EXPECT_EQ(Stored(), 4U);
}

TEST_F(Statements, RetryOnLockedAsOnBusyAndTimeOutWhileAdvancing) {
  std::vector<int> statuses(12, SQLITE_BUSY);
  statuses[0] = SQLITE_LOCKED;
  statuses[2] = SQLITE_OK;
  Testing::ScriptedAnswer script(m_db, statuses);
  SimpleQuery query(m_db, "SELECT answer(x) FROM t");
  ASSERT_EQ(query.Exec(), Tarn::RESULT_OK);
  EXPECT_EQ(m_Log.Take(), Expected("step", 2));
  std::string value;
  EXPECT_FALSE(query.GetNextResult(value));
  EXPECT_EQ(value, "a") << "copied, but not delivered";
  EXPECT_EQ(m_Log.Take(), Expected("step result", 9));
  EXPECT_TRUE(query.DiscardNextResult()) << "stays prepared";
}

TEST_F(Statements, SucceedOnceTheLockIsReleased) {
  struct ReleasingLog : Testing::CaptureLog { // ends the other's transaction at the second line
    explicit ReleasingLog(Testing::BareDatabase& connection) : other(connection) {}
    void VLog(Tarn::LogType_t level, const char* format, std::va_list arguments) override {
      CaptureLog::VLog(level, format, arguments);
      ++count == 2 ? other.Run("COMMIT") : void();
    }
    Testing::BareDatabase& other;
    int count = 0;
  };
  std::size_t rows = 3;
  // The last: a reader keeps the insert from committing, which undoes it; the retry must not insert twice.
  for (const auto& [lock, what] :
       {std::pair("BEGIN EXCLUSIVE", "prepare"), {"BEGIN IMMEDIATE", "step"}, {"BEGIN; SELECT x FROM t", "step"}}) {
    m_Other.Run(lock);
    ReleasingLog log(m_Other);
    EXPECT_EQ(SimpleQuery(m_db, "INSERT INTO t VALUES (NULL)").Exec(), Tarn::RESULT_FALSE);
    EXPECT_EQ(log.Take(), Expected(what, 2)) << lock;
    EXPECT_EQ(Stored(), ++rows) << lock;
  }
}
