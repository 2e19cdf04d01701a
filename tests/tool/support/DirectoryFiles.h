#pragma once

#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "ToolRun.h"
#include "support/Support.h"

namespace Testing {

using Json = nlohmann::ordered_json;

/// A stored password that no output may show.
constexpr const char* Digest = "00112233445566778899aabbccddeeff:"
                               "00112233445566778899aabbccddeeff00112233445566778899aabbccddeeff";

std::string Slurp(const std::string& file);
void Spill(const std::string& file, const std::string& text);

/// A user of a directory file, with `rest` behind its members.
std::string User(const std::string& id, const std::string& rest = "");
/// A directory file of these entries.
std::string Document(const std::string& users, const std::string& groups = "", const std::string& memberships = "",
                     const std::string& filters = "");

/// The rows of the four tables.
using Contents = std::vector<std::vector<BareDatabase::Row>>;
/// Reads them in the order of the listings, past the tool, and fails the test when the file is damaged.
Contents ReadContents(const std::string& file);

/// Makes a database whose one user is "root".
void CreateDatabase(const std::string& file);

/// The paths of the findings in a report, in order, a blank before each.
std::string Paths(const Json& findings);

/// A database of the test's own.
class Transfer : public ::testing::Test {
protected:
  void SetUp() override { CreateDatabase(m_Database); }

  /// Replaces the database's contents past the tool.
  void Fill(const std::string& sql) const {
    BareDatabase(m_Database)
        .Run("DELETE FROM users; DELETE FROM groups; DELETE FROM groupusers; DELETE FROM filters;" + sql);
  }
  ToolResult Tool(const std::vector<std::string>& arguments, const std::string& input = "") const {
    return RunTool(m_Database, arguments, input);
  }

  TemporaryDirectory m_Place;
  std::string m_Database = m_Place.File("access.db");
};

} // namespace Testing
