#include "directory/lint/Mender.h"

#include <algorithm>

#include "directory/lint/ShellWords.h"

namespace AccessDirectory {

Mender::Command Mender::Run(const std::vector<std::string>& words, const std::vector<std::string>& stored) const {
  std::vector<std::string> all = {"perenna-access"};
  all.insert(all.end(), m_Arguments.begin(), m_Arguments.end());
  all.insert(all.end(), words.begin(), words.end());
  const auto is_option = [](const std::string& text) { return !text.empty() && text.front() == '-'; };
  if (std::any_of(stored.begin(), stored.end(), is_option)) {
    all.emplace_back("--");
  }
  all.insert(all.end(), stored.begin(), stored.end());
  return ShellCommand(all);
}

std::string Mender::Sql(const std::string& statement) const {
  const std::string advice = "no command does this; with the sqlite3 shell: ";
  const auto command = ShellCommand({"sqlite3", m_File, statement});
  return advice + (command ? *command : statement);
}

Mender::Command Mender::Then(const Command& first, const Command& second) {
  return first && second ? Command(*first + " && " + *second) : std::nullopt;
}

} // namespace AccessDirectory
