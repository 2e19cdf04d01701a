#include "ToolDirectory.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "LocalAccessManager.h"

namespace Testing {

Arguments::Arguments(const char* line) {
  std::istringstream words(line);
  for (std::string word; words >> word;) {
    push_back(word);
  }
}

void ToolDirectory::SetUp() {
  const ToolResult made = Tool({"init", "--user", "root", "--password-stdin", "--no-administrators"}, "root\n");
  ASSERT_EQ(made.status, 0) << made.err;
}

void ToolDirectory::Run(const std::vector<Step>& steps) const {
  for (const Step& step : steps) {
    std::string line = "perenna-access";
    for (const std::string& argument : step.arguments) {
      line += " " + ::testing::PrintToString(argument);
    }
    SCOPED_TRACE(line);
    const ToolResult result = Tool(step.arguments, step.input);
    EXPECT_EQ(result.status, step.status) << result.out << result.err;
    EXPECT_EQ(result.out, step.out);
    if (step.error.empty()) {
      EXPECT_EQ(result.err, "");
    } else {
      EXPECT_NE(result.err.find(step.error), std::string::npos) << "expected: " << step.error << "\nin: " << result.err;
    }
  }
}

nlohmann::ordered_json ToolDirectory::Json(Arguments arguments, int status) const {
  arguments.insert(arguments.begin(), "--json");
  const ToolResult result = Tool(arguments);
  EXPECT_EQ(result.status, status) << ::testing::PrintToString(arguments) << '\n' << result.err;
  return nlohmann::ordered_json::parse(result.out);
}

bool ToolDirectory::Login(const std::string& user_id, const std::string& password) const {
  Perenna::PListDict section;
  section.SetValue(LocalAccessManager::Strings::DatabaseFilename, m_File);
  LocalAccessManager::UserManager manager;
  EXPECT_FALSE(manager.InitUserManager(section).Failed());
  return manager.TestUserIdAndPassword(Perenna::HTTPRequest(Perenna::METH_GET, "/"), user_id, password);
}

void ForEachCommand(const std::function<void(const std::vector<std::string>&, const std::string&)>& visit,
                    const std::vector<std::string>& path) {
  std::vector<std::string> arguments = path;
  arguments.emplace_back("--help");
  const std::string help = RunTool("", arguments).out;
  visit(path, help);
  const std::string heading = "\nCommands:\n";
  const std::size_t begin = help.find(heading);
  std::istringstream lines(begin == std::string::npos ? "" : help.substr(begin + heading.size()));
  for (std::string line; std::getline(lines, line) && line.rfind("  ", 0) == 0;) {
    if (line[2] != ' ') { // else the description goes on
      std::vector<std::string> subcommand = path;
      subcommand.push_back(line.substr(2, line.find(' ', 2) - 2));
      ForEachCommand(visit, subcommand);
    }
  }
}

std::string Contents(const std::string& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::vector<std::string> Names(const std::string& directory) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

} // namespace Testing
