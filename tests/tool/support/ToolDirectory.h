#pragma once

#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "ToolRun.h"
#include "support/Support.h"

namespace Testing {

/// The words of a command line; one text is taken apart at its blanks.
struct Arguments : std::vector<std::string> {
  using std::vector<std::string>::vector;
  Arguments(std::vector<std::string> words) : std::vector<std::string>(std::move(words)) {} // NOLINT: reads well
  Arguments(const char* line);                                                              // NOLINT: the same
};

/// A run of the tool and what is expected of it.
struct Step {
  Arguments arguments;
  int status = 0;
  std::string out;        ///< all of standard output
  std::string error;      ///< a part of standard error; empty: nothing was written there
  std::string input = {}; ///< on standard input
};

/// A fixture: a database made by `init`, with one user "root" whose password is "root", and no group.
class ToolDirectory : public ::testing::Test {
protected:
  void SetUp() override;

  const std::string& File() const { return m_File; }
  std::string PathBeside(const std::string& name) const { return m_Place.File(name); }
  std::string Place() const { return m_Place.Path(); }

  ToolResult Tool(const Arguments& arguments, const std::string& input = {}) const {
    return RunTool(m_File, arguments, input);
  }
  /// Runs the tool as often as there are steps.
  void Run(const std::vector<Step>& steps) const;
  /// The output of a run with --json, which must end with `status`.
  nlohmann::ordered_json Json(Arguments arguments, int status = 0) const;

  /// Past the tool.
  void Sql(const std::string& statements) const { BareDatabase(m_File).Run(statements); }
  std::vector<BareDatabase::Row> Query(const std::string& sql, const std::vector<std::string>& arguments = {}) const {
    return BareDatabase(m_File).Query(sql, arguments);
  }
  /// Whether the module accepts the password.
  bool Login(const std::string& user_id, const std::string& password) const;

private:
  TemporaryDirectory m_Place;
  std::string m_File = m_Place.File("access.db");
};

/// Visits all commands, found in their help, with the words of each and its help; the program itself first.
void ForEachCommand(const std::function<void(const std::vector<std::string>& path, const std::string& help)>& visit,
                    const std::vector<std::string>& path = {});

/// The whole of a file.
std::string Contents(const std::string& file);

/// The names in a directory, in ascending order.
std::vector<std::string> Names(const std::string& directory);

} // namespace Testing
