#pragma once

#include <optional>
#include <string>
#include <vector>

namespace AccessDirectory {

/// Words what mends a finding, to be pasted into a shell in the directory of this run.
class Mender {
public:
  /// `arguments` lead another run of the tool to the same database.
  Mender(std::string file, std::vector<std::string> arguments)
      : m_File(std::move(file)), m_Arguments(std::move(arguments)) {}

  using Command = std::optional<std::string>;

  /// "perenna-access WORDS STORED"; nothing when a shell cannot pass on what is stored.
  Command Run(const std::vector<std::string>& words, const std::vector<std::string>& stored) const;

  /// Advice for what no command of the tool does: an SQL statement for the sqlite3 shell. It holds no stored text.
  std::string Sql(const std::string& statement) const;

  /// One command after the other, each only if the one before succeeded; nothing when one of them is missing.
  static Command Then(const Command& first, const Command& second);

private:
  std::string m_File;
  std::vector<std::string> m_Arguments;
};

} // namespace AccessDirectory
