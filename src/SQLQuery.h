#pragma once

#include "PN_HTTP.h"
#include "PN_Sqlite3.h"

/// Every SQL statement of the module, a class each; the texts stand in SQLQuery.cpp. Objects live on the stack of one
/// operation, under the manager's lock.
namespace SQLQuery {

// NOLINTBEGIN(bugprone-macro-parentheses): a class name
// The shape that all but one of the statements share: a constructor from the connection.
#define PERENNA_STATEMENT(Name)                                                                                        \
  class Name : public Perenna::Sqlite3::SimpleQuery {                                                                  \
  public:                                                                                                              \
    explicit Name(sqlite3* db);                                                                                        \
  }
// NOLINTEND(bugprone-macro-parentheses)

PERENNA_STATEMENT(GetUsers);         // Exec()
PERENNA_STATEMENT(GetUser);          // Exec(user_id)
PERENNA_STATEMENT(GetUserGroups);    // Exec(user_id)
PERENNA_STATEMENT(CreateUser);       // Exec(dict)
PERENNA_STATEMENT(DeleteUser);       // Exec(user_id)
PERENNA_STATEMENT(DeleteUserGroups); // Exec(user_id)

PERENNA_STATEMENT(GetGroups);        // Exec()
PERENNA_STATEMENT(GetGroup);         // Exec(group_id)
PERENNA_STATEMENT(GetGroupUsers);    // Exec(group_id)
PERENNA_STATEMENT(AddGroupUser);     // Exec(group_id, user_id)
PERENNA_STATEMENT(CreateGroup);      // Exec(dict)
PERENNA_STATEMENT(DeleteGroup);      // Exec(group_id)
PERENNA_STATEMENT(DeleteGroupUsers); // Exec(group_id)

PERENNA_STATEMENT(GetFilters);   // Exec()
PERENNA_STATEMENT(CreateFilter); // Exec(dict)
PERENNA_STATEMENT(DeleteFilter); // Exec(dict)

PERENNA_STATEMENT(GetUserById);          // Exec(user_id)
PERENNA_STATEMENT(GetUserByCertificate); // Exec(thumbprint)
PERENNA_STATEMENT(GetMethods);           // Exec(user_id, url_path)

#undef PERENNA_STATEMENT

/// The distinct actions of the filters that apply to a request.
class GetFilterForRequest : public Perenna::Sqlite3::SimpleQuery {
public:
  explicit GetFilterForRequest(sqlite3* db);
  /// As the inherited `Exec`s, but Tarn::RESULT_STATE when the statement cannot be prepared.
  Tarn::Result_t Exec(Perenna::Method_t method, const std::string& user_id, const std::string& url_path);
};

} // namespace SQLQuery
