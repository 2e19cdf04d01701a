// Every statement of the module: what it hands to SQLite for its arguments, and how it fails.

#include "SQLQuery.h"

#include <functional>
#include <memory>

#include "support/AccessDirectory.h"

using namespace Testing;

namespace {

class Statements : public ::testing::Test {
protected:
  Statements() {
    LocalAccessManager::UserManager().InitUserManager(Dict({{"DatabaseFilename", m_Place.File("access.db")}}));
    m_Bare = std::make_unique<BareDatabase>(m_Place.File("access.db"));
    db = m_Bare->Handle();
    const auto one = [](sqlite3_context* context, int, sqlite3_value**) { sqlite3_result_int(context, 1); };
    sqlite3_create_function(db, "regexp", 2, SQLITE_UTF8, nullptr, one, nullptr, nullptr);
    const auto record = [](unsigned, void* self, void* statement, void*) {
      char* const text = sqlite3_expanded_sql(static_cast<sqlite3_stmt*>(statement));
      static_cast<Statements*>(self)->ran = text;
      sqlite3_free(text);
      return 0;
    };
    sqlite3_trace_v2(db, SQLITE_TRACE_PROFILE, record, this);
    log.Take();
  }

  sqlite3* db = nullptr;
  std::string ran; // the last statement that ended, its arguments filled in
  CaptureLog log;

private:
  TemporaryDirectory m_Place;
  std::unique_ptr<BareDatabase> m_Bare;
};

} // namespace

TEST_F(Statements, BindTheirArgumentsWhereTheyBelong) {
  const Perenna::PListDict dict = Fields("action=a auth_method=am auth_value=av create_date=cd create_user=cu filter=f "
                                         "group_id=g group_name=gn method=m other=o user_id=u");
  Perenna::X509Thumbprint thumbprint;
  thumbprint.DecodeBase64("AAECAwQFBgcICQoLDA0ODxAREhM=");
  const std::string concerned = "group_id IN ( SELECT DISTINCT group_id FROM groupusers WHERE user_id = 'u' )"
                                " AND '/url' REGEXP filter";
  using Case = std::pair<std::function<Tarn::Result_t()>, std::string>;
  // clang-format off
#define RUN(Name, arguments) [&] { return SQLQuery::Name(db).Exec arguments; }
  const std::vector<Case> cases = {
      {RUN(CreateUser, (dict)), "INSERT INTO users VALUES('u','am','av','cd','cu')"},
      {RUN(CreateGroup, (dict)), "INSERT INTO groups VALUES('g','gn')"},
      {RUN(CreateFilter, (dict)), "INSERT INTO filters VALUES('m','g','f','a')"},
      {RUN(AddGroupUser, ("g", "u")), "INSERT INTO groupusers VALUES('g','u')"},
      {RUN(GetUsers, ()), "SELECT * FROM users"},
      {RUN(GetUser, ("u")), "SELECT * FROM users WHERE user_id = 'u'"},
      {RUN(GetUserById, ("u")), "SELECT * FROM users WHERE user_id = 'u'"},
      {RUN(GetUserGroups, ("u")), "SELECT DISTINCT group_id FROM groupusers WHERE user_id = 'u' ORDER BY group_id"},
      {RUN(GetGroups, ()), "SELECT * FROM groups"},
      {RUN(GetGroup, ("g")), "SELECT * FROM groups WHERE group_id = 'g'"},
      {RUN(GetGroupUsers, ("g")), "SELECT user_id FROM groupusers WHERE group_id = 'g' ORDER BY user_id"},
      {RUN(GetFilters, ()), "SELECT * FROM filters"},
      {RUN(GetUserByCertificate, (thumbprint)), "SELECT * FROM users WHERE auth_method = 'tls_client_certificate'"
                                                " AND auth_value = 'AAECAwQFBgcICQoLDA0ODxAREhM='"},
      {RUN(GetFilterForRequest, (Perenna::METH_PATCH, "u", "/url")),
       "SELECT DISTINCT action FROM filters WHERE method = 'PATCH' AND " + concerned},
      {RUN(GetMethods, ("u", "/url")), "SELECT DISTINCT method, action FROM filters WHERE " + concerned},
      {RUN(DeleteFilter, (dict)),
       "DELETE FROM filters WHERE method = 'm' AND group_id = 'g' AND filter = 'f' AND action = 'a'"},
      {RUN(DeleteUserGroups, ("u")), "DELETE FROM groupusers WHERE user_id = 'u'"},
      {RUN(DeleteUser, ("u")), "DELETE FROM users WHERE user_id = 'u'"},
      {RUN(DeleteGroupUsers, ("g")), "DELETE FROM groupusers WHERE group_id = 'g'"},
      {RUN(DeleteGroup, ("g")), "DELETE FROM groups WHERE group_id = 'g'"}};
#undef RUN
  // clang-format on
  for (const auto& [run, sql] : cases) {
    EXPECT_FALSE(run().Failed()) << sql;
    EXPECT_EQ(ran, sql);
  }
  EXPECT_EQ(TakeText(log), "");
}

TEST_F(Statements, TheRequestStatementAloneReportsItsStateWhenItCannotBePrepared) {
  sqlite3_exec(db, "DROP TABLE filters", nullptr, nullptr, nullptr);
  EXPECT_EQ(SQLQuery::GetFilterForRequest(db).Exec(Perenna::METH_GET, "u", "/"), Tarn::RESULT_STATE);
  EXPECT_EQ(SQLQuery::GetMethods(db).Exec("u", "/"), Perenna::RESULT_DB_FAILURE);
  EXPECT_EQ(SQLQuery::GetFilters(db).Exec(), Perenna::RESULT_DB_FAILURE);
  EXPECT_EQ(log.Take().size(), 6U) << "each: what SQLite says, and that there is no statement";
}
