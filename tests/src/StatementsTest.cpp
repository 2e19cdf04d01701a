// Every statement of the module: what it hands to SQLite for its arguments, and how it fails.

#include "SQLQuery.h"

#include <functional>

#include "support/AccessDirectory.h"

using namespace Testing;

namespace {

class Statements : public ::testing::Test {
protected:
  Statements() {
    LocalAccessManager::UserManager creator;
    creator.InitUserManager(Dict({{"DatabaseFilename", m_Place.File("access.db")}}));
    m_Bare = std::make_unique<BareDatabase>(m_Place.File("access.db"));
    db = m_Bare->Handle();
    sqlite3_create_function(
        db, "regexp", 2, SQLITE_UTF8, nullptr,
        [](sqlite3_context* context, int, sqlite3_value**) { sqlite3_result_int(context, 1); }, nullptr, nullptr);
    log.Take();
    sqlite3_trace_v2(
        db, SQLITE_TRACE_PROFILE,
        [](unsigned, void* self, void* statement, void*) {
          char* const text = sqlite3_expanded_sql(static_cast<sqlite3_stmt*>(statement));
          static_cast<Statements*>(self)->m_Ran = text;
          sqlite3_free(text);
          return 0;
        },
        this);
  }

  /// The last statement that ran to its end or was let go, its arguments filled in.
  std::string Ran() { return std::exchange(m_Ran, ""); }

  sqlite3* db = nullptr;
  CaptureLog log;

private:
  TemporaryDirectory m_Place;
  std::unique_ptr<BareDatabase> m_Bare;
  std::string m_Ran;
};

} // namespace

TEST_F(Statements, BindTheirArgumentsWhereTheyBelong) {
  // Keys in another order than the columns, and more of them.
  const Perenna::PListDict dict = Dict({{"action", "a"},
                                        {"auth_method", "am"},
                                        {"auth_value", "av"},
                                        {"create_date", "cd"},
                                        {"create_user", "cu"},
                                        {"filter", "f"},
                                        {"group_id", "g"},
                                        {"group_name", "gn"},
                                        {"method", "m"},
                                        {"user_id", "u"},
                                        {"other", "o"}});
  Perenna::X509Thumbprint thumbprint;
  thumbprint.DecodeBase64("AAECAwQFBgcICQoLDA0ODxAREhM=");
  const std::string concerned = "group_id IN ( SELECT DISTINCT group_id FROM groupusers WHERE user_id = 'u' )";
  struct Case {
    std::function<Tarn::Result_t()> run;
    std::string sql;
  };
#define CASE(Name, arguments, sql)                                                                                     \
  {                                                                                                                    \
    [&] { return SQLQuery::Name(db).Exec arguments; }, sql                                                             \
  }
  const std::vector<Case> cases = {
      CASE(CreateUser, (dict), "INSERT INTO users VALUES('u','am','av','cd','cu')"),
      CASE(CreateGroup, (dict), "INSERT INTO groups VALUES('g','gn')"),
      CASE(CreateFilter, (dict), "INSERT INTO filters VALUES('m','g','f','a')"),
      CASE(AddGroupUser, ("g", "u"), "INSERT INTO groupusers VALUES('g','u')"),
      CASE(GetUsers, (), "SELECT * FROM users"),
      CASE(GetUser, ("u"), "SELECT * FROM users WHERE user_id = 'u'"),
      CASE(GetUserById, ("u"), "SELECT * FROM users WHERE user_id = 'u'"),
      CASE(GetUserGroups, ("u"), "SELECT DISTINCT group_id FROM groupusers WHERE user_id = 'u' ORDER BY group_id"),
      CASE(GetGroups, (), "SELECT * FROM groups"),
      CASE(GetGroup, ("g"), "SELECT * FROM groups WHERE group_id = 'g'"),
      CASE(GetGroupUsers, ("g"), "SELECT user_id FROM groupusers WHERE group_id = 'g' ORDER BY user_id"),
      CASE(GetFilters, (), "SELECT * FROM filters"),
      CASE(GetUserByCertificate, (thumbprint),
           "SELECT * FROM users WHERE auth_method = 'tls_client_certificate' AND auth_value = "
           "'AAECAwQFBgcICQoLDA0ODxAREhM='"),
      CASE(GetFilterForRequest, (Perenna::METH_PATCH, "u", "/url"),
           "SELECT DISTINCT action FROM filters WHERE method = 'PATCH' AND " + concerned + " AND '/url' REGEXP filter"),
      CASE(GetMethods, ("u", "/url"),
           "SELECT DISTINCT method, action FROM filters WHERE " + concerned + " AND '/url' REGEXP filter"),
      CASE(DeleteFilter, (dict),
           "DELETE FROM filters WHERE method = 'm' AND group_id = 'g' AND filter = 'f' AND action = 'a'"),
      CASE(DeleteUserGroups, ("u"), "DELETE FROM groupusers WHERE user_id = 'u'"),
      CASE(DeleteUser, ("u"), "DELETE FROM users WHERE user_id = 'u'"),
      CASE(DeleteGroupUsers, ("g"), "DELETE FROM groupusers WHERE group_id = 'g'"),
      CASE(DeleteGroup, ("g"), "DELETE FROM groups WHERE group_id = 'g'"),
  };
#undef CASE
  for (const Case& one : cases) {
    EXPECT_FALSE(one.run().Failed()) << one.sql;
    EXPECT_EQ(Ran(), one.sql);
  }
  EXPECT_EQ(log.Take(), Lines{});
}

TEST_F(Statements, AnInsertEndsWithoutARowAndASelectWaitsWithOne) {
  EXPECT_EQ(SQLQuery::AddGroupUser(db).Exec("g", "u"), Tarn::RESULT_FALSE);
  EXPECT_EQ(SQLQuery::AddGroupUser(db).Exec("g", "u"), Tarn::RESULT_FALSE);
  SQLQuery::GetGroupUsers users(db); // without DISTINCT
  ASSERT_EQ(users.Exec("g"), Tarn::RESULT_OK);
  std::string value;
  EXPECT_TRUE(users.GetNextResult(value) && users.GetNextResult(value) && !users.GetNextResult(value));
  SQLQuery::GetUserGroups groups(db); // with it
  ASSERT_EQ(groups.Exec("u"), Tarn::RESULT_OK);
  EXPECT_TRUE(groups.GetNextResult(value) && !groups.GetNextResult(value));
  EXPECT_EQ(SQLQuery::GetUserGroups(db).Exec("nobody"), Tarn::RESULT_FALSE);
}

TEST_F(Statements, TheRequestStatementAloneReportsItsStateWhenItCannotBePrepared) {
  sqlite3_exec(db, "DROP TABLE filters", nullptr, nullptr, nullptr);
  EXPECT_EQ(SQLQuery::GetFilterForRequest(db).Exec(Perenna::METH_GET, "u", "/"), Tarn::RESULT_STATE);
  EXPECT_EQ(SQLQuery::GetMethods(db).Exec("u", "/"), Perenna::RESULT_DB_FAILURE);
  EXPECT_EQ(SQLQuery::GetFilters(db).Exec(), Perenna::RESULT_DB_FAILURE);
  EXPECT_EQ(log.Take().size(), 6U) << "each: what SQLite says, and that there is no statement";
}
