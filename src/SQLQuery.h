#pragma once

#include <string>

#include "LocalAccessManager.h"
#include "PN_Sqlite3.h"

/// Every SQL statement of the module, a class each. Objects live on the stack of one operation, under the manager's
/// lock.
namespace SQLQuery {

/// A statement of a fixed text; `ArgumentNames` are the dictionary keys that feed its placeholders, in their order,
/// where a dictionary does.
template <const char* Text, const std::string*... ArgumentNames>
class Statement : public Perenna::Sqlite3::SimpleQuery {
public:
  explicit Statement(sqlite3* db) : SimpleQuery(db, Text) { (PushArgName(*ArgumentNames), ...); }
};

namespace Keys = LocalAccessManager::Strings;

namespace Text {

inline constexpr char GetUsers[] = "SELECT * FROM users";
inline constexpr char GetUser[] = "SELECT * FROM users WHERE user_id = ?";
inline constexpr char GetUserGroups[] = "SELECT DISTINCT group_id FROM groupusers WHERE user_id = ? ORDER BY group_id";
inline constexpr char CreateUser[] = "INSERT INTO users VALUES(?,?,?,?,?)";
inline constexpr char DeleteUser[] = "DELETE FROM users WHERE user_id = ?";
inline constexpr char DeleteUserGroups[] = "DELETE FROM groupusers WHERE user_id = ?";

inline constexpr char GetGroups[] = "SELECT * FROM groups";
inline constexpr char GetGroup[] = "SELECT * FROM groups WHERE group_id = ?";
inline constexpr char GetGroupUsers[] = "SELECT user_id FROM groupusers WHERE group_id = ? ORDER BY user_id";
inline constexpr char AddGroupUser[] = "INSERT INTO groupusers VALUES(?,?)";
inline constexpr char CreateGroup[] = "INSERT INTO groups VALUES(?,?)";
inline constexpr char DeleteGroup[] = "DELETE FROM groups WHERE group_id = ?";
inline constexpr char DeleteGroupUsers[] = "DELETE FROM groupusers WHERE group_id = ?";

inline constexpr char GetFilters[] = "SELECT * FROM filters";
inline constexpr char CreateFilter[] = "INSERT INTO filters VALUES(?,?,?,?)";
inline constexpr char DeleteFilter[] =
    "DELETE FROM filters WHERE method = ? AND group_id = ? AND filter = ? AND action = ?";

inline constexpr char GetUserByCertificate[] =
    "SELECT * FROM users WHERE auth_method = 'tls_client_certificate' AND auth_value = ?";
inline constexpr char GetMethods[] = "SELECT DISTINCT method, action FROM filters WHERE group_id IN "
                                     "( SELECT DISTINCT group_id FROM groupusers WHERE user_id = ? ) "
                                     "AND ? REGEXP filter";
inline constexpr char GetFilterForRequest[] = "SELECT DISTINCT action FROM filters WHERE method = ? AND group_id IN "
                                              "( SELECT DISTINCT group_id FROM groupusers WHERE user_id = ? ) "
                                              "AND ? REGEXP filter";

} // namespace Text

using GetUsers = Statement<Text::GetUsers>;                 // Exec()
using GetUser = Statement<Text::GetUser>;                   // Exec(user_id)
using GetUserGroups = Statement<Text::GetUserGroups>;       // Exec(user_id)
using DeleteUser = Statement<Text::DeleteUser>;             // Exec(user_id)
using DeleteUserGroups = Statement<Text::DeleteUserGroups>; // Exec(user_id)
using CreateUser = Statement<Text::CreateUser, &Keys::user_id, &Keys::auth_method, &Keys::auth_value,
                             &Keys::create_date, &Keys::create_user>; // Exec(dict)

using GetGroups = Statement<Text::GetGroups>;                                         // Exec()
using GetGroup = Statement<Text::GetGroup>;                                           // Exec(group_id)
using GetGroupUsers = Statement<Text::GetGroupUsers>;                                 // Exec(group_id)
using AddGroupUser = Statement<Text::AddGroupUser>;                                   // Exec(group_id, user_id)
using DeleteGroup = Statement<Text::DeleteGroup>;                                     // Exec(group_id)
using DeleteGroupUsers = Statement<Text::DeleteGroupUsers>;                           // Exec(group_id)
using CreateGroup = Statement<Text::CreateGroup, &Keys::group_id, &Keys::group_name>; // Exec(dict)

using GetFilters = Statement<Text::GetFilters>; // Exec()
using CreateFilter =
    Statement<Text::CreateFilter, &Keys::method, &Keys::group_id, &Keys::filter, &Keys::action>; // Exec(dict)
using DeleteFilter =
    Statement<Text::DeleteFilter, &Keys::method, &Keys::group_id, &Keys::filter, &Keys::action>; // Exec(dict)

using GetUserById = Statement<Text::GetUser>;                       // Exec(user_id)
using GetUserByCertificate = Statement<Text::GetUserByCertificate>; // Exec(thumbprint)
using GetMethods = Statement<Text::GetMethods>;                     // Exec(user_id, url_path)

/// The distinct actions of the filters that apply to a request.
class GetFilterForRequest : public Statement<Text::GetFilterForRequest> {
public:
  using Statement::Statement;

  /// As the inherited `Exec`s, but Tarn::RESULT_STATE when the statement cannot be prepared.
  Tarn::Result_t Exec(Perenna::Method_t method, const std::string& user_id, const std::string& url_path) {
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
};

} // namespace SQLQuery
