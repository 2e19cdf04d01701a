#pragma once

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "LocalAccessManager.h"
#include "support/Support.h"

namespace Testing {

/// The parts of a text between single separators; two in a row have an empty part between them.
std::vector<std::string> Split(const std::string& text, char separator);

/// The request that "key=value key=value" writes down; a value holds no space.
Perenna::PListDict Fields(const std::string& text);

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
/// The helpers that add something fail the test when the module does not do as asked.
class AccessDirectory : public ::testing::Test {
protected:
  using UserManager = LocalAccessManager::UserManager;

  void SetUp() override;

  const std::string& File() const { return m_File; }
  std::string PathBeside(const std::string& name) const { return m_Place.File(name); }
  UserManager& Manager() { return *m_Manager; }
  /// The log since the last call, or since the fixture was set up, as TakeText has it.
  std::string Log() { return TakeText(m_Log); }

  /// Statements past the module, on a connection that is closed again.
  void Run(const std::string& sql) const { BareDatabase(m_File).Run(sql); }
  /// The rows of one statement past the module in a text: "a|b; c|d".
  std::string Rows(const std::string& sql) const;

  /// A user with a stored credential, written past the module; a text may hold any byte.
  void AddStoredUser(const std::string& user_id, const std::string& auth_method, const std::string& auth_value) const;
  void AddUser(const std::string& user_id, const std::string& password = "a password");
  void AddGroup(const std::string& group_id, const std::vector<std::string>& user_ids = {});
  /// A filter from its four values, a space between two: "GET readers ^/ Allow".
  void AddFilter(const std::string& filter);

  bool Login(const std::string& user_id, const std::string& password);
  /// Whether a user may perform a request: "GET /url".
  bool May(const std::string& user_id, const std::string& request);
  /// The answer for a URL and the methods appended: "yes GET PUT".
  std::string Options(const std::string& user_id, const std::string& url);

private:
  TemporaryDirectory m_Place;
  std::string m_File = m_Place.File("access.db");
  CaptureLog m_Log;
  UserManager* m_Manager = nullptr;
};

} // namespace Testing
