#include "directory/member/Creation.h"

#include <array>

#include "LocalAccessManager.h"
#include "TN_util.h"
#include "directory/Failure.h"
#include "directory/member/Membership.h"
#include "directory/text/Text.h"
#include "directory/text/Vocabulary.h"

namespace AccessDirectory {

namespace {

[[noreturn]] void RefuseInput(const std::string& reason, const Tarn::Result_t& result) {
  throw Failure(Failure::Kind::Input, reason, result.symbol);
}

} // namespace

void CreateUser(Database& database, const std::string& user_id, const Credential& credential,
                const std::string& create_user) {
  if (user_id.empty()) {
    RefuseInput("Empty user_id.", Tarn::RESULT_PARAM);
  }
  if (UserExists(database, user_id)) {
    throw Failure(Failure::Kind::Refused, "the user " + Quoted(user_id) + " exists already",
                  Tarn::RESULT_FILEEXISTS.symbol);
  }
  if (!UserExists(database, create_user)) {
    RefuseInput("Non-existant create_user.", Tarn::RESULT_STATE);
  }
  std::array<char, Tarn::DateTimeLen + 1> now{};
  Tarn::Timestamp().EncodeString(now.data(), static_cast<unsigned>(now.size()));
  database.Run("INSERT INTO users(user_id, auth_method, auth_value, create_date, create_user) VALUES(?, ?, ?, ?, ?)",
               {user_id, credential.Method(), credential.StoredValue(), now.data(), create_user});
}

void CreateGroup(Database& database, const std::string& group_id, const std::string& group_name) {
  if (group_id.empty() || group_name.empty()) {
    RefuseInput("Empty group_id or group_name.", Tarn::RESULT_PARAM);
  }
  if (!IsGroupId(group_id)) {
    RefuseInput("Invalid characters in group_id.", Tarn::RESULT_PARAM);
  }
  if (GroupExists(database, group_id)) {
    throw Failure(Failure::Kind::Refused, "the group " + Quoted(group_id) + " exists already",
                  Tarn::RESULT_FILEEXISTS.symbol);
  }
  database.Run("INSERT INTO groups(group_id, group_name) VALUES(?, ?)", {group_id, group_name});
}

void CreateFilter(Database& database, const std::string& method, const std::string& group_id, const std::string& filter,
                  const std::string& action) {
  database.Run("INSERT INTO filters(method, group_id, filter, action) VALUES(?, ?, ?, ?)",
               {method, group_id, filter, action});
}

void DeleteFilter(Database& database, const std::string& method, const std::string& group_id, const std::string& filter,
                  const std::string& action) {
  database.Run("DELETE FROM filters WHERE method = ? AND group_id = ? AND filter = ? AND action = ?",
               {method, group_id, filter, action});
}

} // namespace AccessDirectory
