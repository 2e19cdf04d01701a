#include "directory/policy/AccessRulesReader.h"

#include <array>
#include <fstream>
#include <sstream>
#include <string_view>

#include "directory/Failure.h"
#include "directory/transfer/DirectoryReader.h"

namespace AccessDirectory {

namespace {

constexpr std::string_view DatabaseBegins = "SQLite format 3";

bool IsDatabase(const std::string& name) {
  std::array<char, DatabaseBegins.size()> begin{};
  std::ifstream file(name, std::ios::binary);
  return name != "-" && file.read(begin.data(), begin.size()) &&
         std::string_view(begin.data(), begin.size()) == DatabaseBegins;
}

} // namespace

AccessRules ReadAccessRules(Database& database, Patterns& patterns) {
  return {ReadStoredDirectory(database), patterns};
}

AccessRules ReadAccessRules(const std::string& name, Patterns& patterns, Progress& progress) {
  if (IsDatabase(name)) {
    Database database(name, Database::Access::Read);
    return ReadAccessRules(database, patterns);
  }
  Directory directory = EmptyDirectory();
  FileFindings errors;
  Input input(name, progress);
  ReadDirectory(input, directory, errors);
  if (errors.Count() > 0) {
    std::ostringstream text;
    errors.Print(text, "  ");
    throw Failure(Failure::Kind::Input,
                  (name == "-" ? "standard input" : Quoted(name)) +
                      " is neither a database nor a file that \"export\" wrote: " + Count(errors.Count(), "error") +
                      "\n" + text.str().substr(0, text.str().size() - 1));
  }
  return {directory, patterns};
}

} // namespace AccessDirectory
