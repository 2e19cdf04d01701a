#include "SQLQuery.h"

#include "LocalAccessManager.h"

namespace SQLQuery {

namespace Keys = LocalAccessManager::Strings;

// The statements in the order of the header. Argument names equal the column names.

#define PERENNA_STATEMENT(Name, text)                                                                                  \
  Name::Name(sqlite3* db) : SimpleQuery(db, text) {}

PERENNA_STATEMENT(GetUsers, "SELECT * FROM users")
PERENNA_STATEMENT(GetUser, "SELECT * FROM users WHERE user_id = ?")
PERENNA_STATEMENT(GetUserGroups, "SELECT DISTINCT group_id FROM groupusers WHERE user_id = ? ORDER BY group_id")

CreateUser::CreateUser(sqlite3* db) : SimpleQuery(db, "INSERT INTO users VALUES(?,?,?,?,?)") {
  PushArgName(Keys::user_id);
  PushArgName(Keys::auth_method);
  PushArgName(Keys::auth_value);
  PushArgName(Keys::create_date);
  PushArgName(Keys::create_user);
}

PERENNA_STATEMENT(DeleteUser, "DELETE FROM users WHERE user_id = ?")
PERENNA_STATEMENT(DeleteUserGroups, "DELETE FROM groupusers WHERE user_id = ?")

PERENNA_STATEMENT(GetGroups, "SELECT * FROM groups")
PERENNA_STATEMENT(GetGroup, "SELECT * FROM groups WHERE group_id = ?")
PERENNA_STATEMENT(GetGroupUsers, "SELECT user_id FROM groupusers WHERE group_id = ? ORDER BY user_id")
PERENNA_STATEMENT(AddGroupUser, "INSERT INTO groupusers VALUES(?,?)")

CreateGroup::CreateGroup(sqlite3* db) : SimpleQuery(db, "INSERT INTO groups VALUES(?,?)") {
  PushArgName(Keys::group_id);
  PushArgName(Keys::group_name);
}

PERENNA_STATEMENT(DeleteGroup, "DELETE FROM groups WHERE group_id = ?")
PERENNA_STATEMENT(DeleteGroupUsers, "DELETE FROM groupusers WHERE group_id = ?")

PERENNA_STATEMENT(GetFilters, "SELECT * FROM filters")

CreateFilter::CreateFilter(sqlite3* db) : SimpleQuery(db, "INSERT INTO filters VALUES(?,?,?,?)") {
  PushArgName(Keys::method);
  PushArgName(Keys::group_id);
  PushArgName(Keys::filter);
  PushArgName(Keys::action);
}

DeleteFilter::DeleteFilter(sqlite3* db)
    : SimpleQuery(db, "DELETE FROM filters WHERE method = ? AND group_id = ? AND filter = ? AND action = ?") {
  PushArgName(Keys::method);
  PushArgName(Keys::group_id);
  PushArgName(Keys::filter);
  PushArgName(Keys::action);
}

PERENNA_STATEMENT(GetUserById, "SELECT * FROM users WHERE user_id = ?")
PERENNA_STATEMENT(GetUserByCertificate,
                  "SELECT * FROM users WHERE auth_method = 'tls_client_certificate' AND auth_value = ?")
PERENNA_STATEMENT(GetMethods, "SELECT DISTINCT method, action FROM filters WHERE group_id IN "
                              "( SELECT DISTINCT group_id FROM groupusers WHERE user_id = ? ) AND ? REGEXP filter")

PERENNA_STATEMENT(GetFilterForRequest,
                  "SELECT DISTINCT action FROM filters WHERE method = ? AND group_id IN "
                  "( SELECT DISTINCT group_id FROM groupusers WHERE user_id = ? ) AND ? REGEXP filter")

#undef PERENNA_STATEMENT

Tarn::Result_t GetFilterForRequest::Exec(Perenna::Method_t method, const std::string& user_id,
                                         const std::string& url_path) {
  if (!TestPrepared()) {
    return Tarn::RESULT_STATE;
  }
  int rc = BindText(1, Perenna::MethodToString(method));
  if (rc == SQLITE_OK) {
    rc = BindText(2, user_id.c_str());
  }
  if (rc == SQLITE_OK) {
    rc = BindText(3, url_path.c_str());
  }
  return StepExec(rc);
}

} // namespace SQLQuery
