// The documents show real sessions: their commands are run, and what they print is what is shown.

#include <algorithm>
#include <fstream>
#include <iterator>
#include <regex>

#include <gtest/gtest.h>

#include "ToolRun.h"
#include "support/Support.h"

namespace Testing {

namespace {

constexpr const char* Password = "correct horse\n"; // typed at every prompt for a password

struct Step {
  std::string command;
  std::string output;
};

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  EXPECT_TRUE(in) << path;
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

/// The lines of the fenced blocks in `language`, without their indentation.
std::vector<std::string> FencedLines(const std::string& document, const std::string& language) {
  std::vector<std::string> lines;
  std::istringstream in(document);
  bool inside = false;
  for (std::string line; std::getline(in, line);) {
    if (line.rfind("```", 0) == 0) {
      inside = !inside && line == "```" + language;
    } else if (inside) {
      lines.push_back(line);
    }
  }
  return lines;
}

/// "$ " begins a command, "> " continues it, everything else is what it prints.
std::vector<Step> Session(const std::string& document) {
  std::vector<Step> steps;
  for (const std::string& line : FencedLines(document, "console")) {
    if (line.rfind("$ ", 0) == 0) {
      steps.push_back({line.substr(2) + "\n", ""});
    } else if (line.rfind("> ", 0) == 0 && !steps.empty() && steps.back().output.empty()) {
      steps.back().command += line.substr(2) + "\n";
    } else if (!steps.empty()) {
      steps.back().output += line + "\n";
    }
  }
  return steps;
}

/// What differs from run to run becomes the same.
std::string Normalised(std::string text) {
  text.erase(std::remove(text.begin(), text.end(), '\r'), text.end());
  text = std::regex_replace(text, std::regex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}"), "<time>");
  text = std::regex_replace(text, std::regex("[0-9a-f]{32}:[0-9a-f]{64}"), "<expression>");
  return std::regex_replace(text, std::regex(" +\n"), "\n");
}

std::string Marker(std::size_t step) {
  return "@@ step " + std::to_string(step) + " @@\n";
}

std::vector<std::pair<std::string, std::string>> Dialogue(const std::vector<Step>& steps) {
  std::vector<std::pair<std::string, std::string>> dialogue;
  for (const Step& step : steps) {
    std::istringstream lines(step.output);
    for (std::string line; std::getline(lines, line);) {
      for (const char* const prompt : {"New password for", "The same once more:"}) {
        if (line.rfind(prompt, 0) == 0) {
          dialogue.emplace_back(prompt, Password);
        }
      }
      if (const std::size_t question = line.find("[Y/n] "); question != std::string::npos) {
        dialogue.emplace_back("[Y/n] ", line.substr(question + 6) + "\n");
      }
    }
  }
  return dialogue;
}

} // namespace

class Documentation : public testing::TestWithParam<const char*> {};

TEST_P(Documentation, SessionsPrintWhatTheyShow) {
  const std::vector<Step> steps = Session(ReadFile(std::string(PERENNA_SOURCE_DIR) + "/" + GetParam()));
  ASSERT_FALSE(steps.empty()) << GetParam() << " shows no session";

  const TemporaryDirectory directory;
  const std::string tool = PERENNA_ACCESS_TOOL;
  std::ofstream script(directory.File("session.sh"));
  script << "cd '" << directory.Path() << "' && mkdir work && cd work\nexport NO_COLOR=1 LC_ALL=C PATH='"
         << tool.substr(0, tool.rfind('/')) << "':\"$PATH\"\n";
  for (std::size_t i = 0; i < steps.size(); ++i) {
    script << "printf '" << Marker(i).substr(0, Marker(i).size() - 1) << "\\n'\n" << steps[i].command;
  }
  script.close();
  const ToolResult run = RunAtTerminal({"/bin/sh", directory.File("session.sh")}, Dialogue(steps));

  const std::string printed = Normalised(run.out);
  for (std::size_t i = 0; i < steps.size(); ++i) {
    const std::size_t begin = printed.find(Marker(i));
    ASSERT_NE(begin, std::string::npos) << "not reached: " << steps[i].command << printed;
    const std::size_t end = std::min(printed.find(Marker(i + 1)), printed.size());
    const std::size_t from = begin + Marker(i).size();
    EXPECT_EQ(printed.substr(from, end - from), Normalised(steps[i].output)) << "$ " << steps[i].command;
  }
}

INSTANTIATE_TEST_SUITE_P(Documents, Documentation, testing::Values("README.md", "docs/administration.md"),
                         [](const auto& document) {
                           std::string name = document.param;
                           std::replace_if(
                               name.begin(), name.end(), [](char c) { return std::isalnum(c) == 0; }, '_');
                           return name;
                         });

TEST(Readme, QuotesTheExampleHostWordForWord) {
  std::string quoted;
  for (const std::string& line : FencedLines(ReadFile(std::string(PERENNA_SOURCE_DIR) + "/README.md"), "cpp")) {
    quoted += line + "\n";
  }
  EXPECT_EQ(quoted, ReadFile(std::string(PERENNA_SOURCE_DIR) + "/examples/example_host.cpp"));
}

} // namespace Testing
