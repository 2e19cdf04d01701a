#pragma once

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "LocalAccessManager.h"
#include "support/Support.h"

namespace Testing {

/// The host's configuration that names a database file.
Perenna::PListDict Configuration(const std::string& file);

/// What every operation answers for user "root" with password "root", group "g" and filter "GET g / Allow", in a line:
/// yes or no for the questions (user, group, password, certificate, request, methods), the result's symbol for the
/// listings (users, groups, filters; with the total when a page was written) and for the writes (create user, group,
/// filter; set a group's users, a user's groups; delete filter, group, user).
std::string Answers(LocalAccessManager::UserManager& manager);

/// A fixture: a database file of the test's own in a temporary directory, opened by the process's UserManager, with one
/// user "root" whose password is "root". The module's connection has not touched the file yet, and no other is open.
///
/// With PERENNA_TEST_TUNE in the environment, the path of the administration tool, the file is tuned before it is
/// opened (indexes, statistics, write-ahead log). Tests therefore assume neither a journal mode nor an order of rows.
///
/// The helpers fail the test when the module does not do as asked.
class AccessDirectory : public ::testing::Test {
protected:
  using UserManager = LocalAccessManager::UserManager;

  void SetUp() override;

  const std::string& File() const { return m_File; }
  std::string PathBeside(const std::string& name) const { return m_Place.File(name); }
  UserManager& Manager() { return *m_Manager; }
  /// The log lines since the last call, or since the fixture was set up.
  Lines Log() { return m_Log.Take(); }

  /// Statements past the module, on a connection that is closed again.
  void Run(const std::string& sql) const { BareDatabase(m_File).Run(sql); }
  std::vector<BareDatabase::Row> Query(const std::string& sql, const std::vector<std::string>& arguments = {}) const {
    return BareDatabase(m_File).Query(sql, arguments);
  }

  /// A user with a stored credential, written past the module; a text may hold any byte.
  void AddStoredUser(const std::string& user_id, const std::string& auth_method, const std::string& auth_value) const;
  void AddUser(const std::string& user_id, const std::string& password = "a password");
  void AddGroup(const std::string& group_id, const std::vector<std::string>& user_ids = {});
  void AddFilter(const std::string& method, const std::string& group_id, const std::string& filter,
                 const std::string& action);

  bool Login(const std::string& user_id, const std::string& password);
  bool May(const std::string& user_id, Perenna::Method_t method, const std::string& url);
  /// The methods appended for a URL; `answer`, when given, takes the operation's own answer.
  std::vector<std::string> Options(const std::string& user_id, const std::string& url, bool* answer = nullptr);

private:
  TemporaryDirectory m_Place;
  std::string m_File = m_Place.File("access.db");
  CaptureLog m_Log;
  UserManager* m_Manager = nullptr;
};

} // namespace Testing
