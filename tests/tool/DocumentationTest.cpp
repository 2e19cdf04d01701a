// The documents show real sessions: their commands are run, and what they print is what is shown.

#include <algorithm>
#include <fstream>
#include <regex>

#include <unistd.h>

#include <gtest/gtest.h>

#include "ToolDirectory.h"

namespace Testing {

namespace {

constexpr const char* Password = "correct horse\n"; // typed at every prompt for a password

struct Shown {
  std::string command;
  std::string output;
};

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
std::vector<Shown> Session(const std::string& document) {
  std::vector<Shown> steps;
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
  text = std::regex_replace(text, std::regex("[0-9]{8}T[0-9]{6}Z"), "<moment>");
  text = std::regex_replace(text, std::regex("\\b[0-9a-f]{40}\\b"), "<thumbprint>");
  text = std::regex_replace(text, std::regex("([a-z2-9]{4}-){4}[a-z2-9]{4}"), "<password>");
  text = std::regex_replace(text, std::regex("[0-9a-f]{32}:[0-9a-f]{64}"), "<expression>");
  text = std::regex_replace(text, std::regex("\"/[^\"]*/site/"), "\"<place>/site/");
  return std::regex_replace(text, std::regex(" +\n"), "\n");
}

std::string Marker(std::size_t step) {
  return "@@ step " + std::to_string(step) + " @@\n";
}

std::vector<std::pair<std::string, std::string>> Dialogue(const std::vector<Shown>& steps) {
  std::vector<std::pair<std::string, std::string>> dialogue;
  for (const Shown& step : steps) {
    std::istringstream lines(step.output);
    for (std::string line; std::getline(lines, line);) {
      for (const char* const prompt :
           {"New password for", "The same once more:", "Enter host password for", "Password:"}) {
        if (line.rfind(prompt, 0) == 0 && line.find("Password: ") == std::string::npos) { // that is an answer
          dialogue.emplace_back(prompt, Password);
        }
      }
      for (const std::string choice : {"[Y/n] ", "[y/N] "}) {
        if (const std::size_t question = line.find(choice); question != std::string::npos) {
          dialogue.emplace_back(choice, line.substr(question + choice.size()) + "\n");
        }
      }
    }
  }
  return dialogue;
}

/// Runs the session of a document at a terminal, in a directory of its own: each step with what it printed.
std::vector<std::pair<Shown, std::string>> RunSession(const std::string& document) {
  const std::vector<Shown> steps = Session(Contents(std::string(PERENNA_SOURCE_DIR) + "/" + document));
  EXPECT_FALSE(steps.empty()) << document << " shows no session";
  const TemporaryDirectory directory;
  const std::string tool = PERENNA_ACCESS_TOOL;
  std::ofstream script(directory.File("session.sh"));
  // The ports of the examples are other people's: they and the commands get free ones.
  script << "set -e; cd '" << directory.Path() << "'; mkdir work examples; cp -r '" << PERENNA_SOURCE_DIR
         << "/examples/nginx' examples\n"
         << R"(port() { python3 -c 'import socket; s = socket.socket(); s.bind(("", 0)); print(s.getsockname()[1])'; }
sed -i "s/:8480/:$(port)/; s/:8443/:$(port)/" examples/nginx/nginx.conf
prefix() { python3 -c '
import random, socket
def free(port):
    try: socket.socket().bind(("127.0.0.1", port))
    except OSError: return False
    return True
print(next(p for p in iter(lambda: random.randrange(2000, 3200), 0) if all(free(10 * p + i) for i in (1, 2, 3))))'; }
clients=$(prefix) peers=$(prefix)
site=$(sed -n 's/.*listen 127.0.0.1:\([0-9]*\);/\1/p' examples/nginx/nginx.conf)
set +e; cd work
)"
         << "export NO_COLOR=1 LC_ALL=C PATH='" << tool.substr(0, tool.rfind('/')) << "':\"$PATH\":/usr/sbin PERENNA='"
         << directory.Path() << "'\n";
  for (std::size_t i = 0; i < steps.size(); ++i) {
    std::string command = std::regex_replace(steps[i].command, std::regex(":8480"), ":\"$$site\"");
    command = std::regex_replace(command, std::regex(":2379"), ":$${clients}");
    script << "printf '" << Marker(i).substr(0, Marker(i).size() - 1) << "\\n'\n"
           << std::regex_replace(command, std::regex(":2380"), ":$${peers}");
  }
  script.close();
  const std::string printed = Normalised(RunAtTerminal({"/bin/sh", directory.File("session.sh")}, Dialogue(steps)).out);
  std::vector<std::pair<Shown, std::string>> run;
  for (std::size_t i = 0; i < steps.size(); ++i) {
    const std::size_t begin = printed.find(Marker(i));
    EXPECT_NE(begin, std::string::npos) << "not reached: " << steps[i].command << printed;
    const std::size_t from = std::min(begin, printed.size() - Marker(i).size()) + Marker(i).size();
    run.emplace_back(steps[i], printed.substr(from, std::min(printed.find(Marker(i + 1)), printed.size()) - from));
  }
  return run;
}

/// What is left of JSON without its values: names in their order, and types; of a list, its first element.
std::string Shape(const nlohmann::ordered_json& json) {
  if (json.is_array()) {
    return "[" + (json.empty() ? "" : Shape(json.front())) + "]";
  }
  if (!json.is_object()) {
    return json.type_name();
  }
  std::string shape = "{";
  for (const auto& [name, value] : json.items()) {
    shape.append(name).append(": ").append(Shape(value)).append("; ");
  }
  return shape + "}";
}

/// The shape of one value, or of one in each line.
std::string ShapeOf(const std::string& text) {
  if (nlohmann::ordered_json::accept(text)) {
    return Shape(nlohmann::ordered_json::parse(text));
  }
  std::string shapes;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    shapes += (nlohmann::ordered_json::accept(line) ? Shape(nlohmann::ordered_json::parse(line)) : line) + '\n';
  }
  return shapes;
}

} // namespace

class Documentation : public testing::TestWithParam<const char*> {};

TEST_P(Documentation, SessionsPrintWhatTheyShow) {
  if (GetParam() == std::string("docs/host.md") && geteuid() != 0) {
    GTEST_SKIP() << "as root only: nginx's workers become another user";
  }
  for (const auto& [step, printed] : RunSession(GetParam())) {
    EXPECT_EQ(printed, Normalised(step.output)) << "$ " << step.command;
  }
}

TEST(JsonDocument, ShowsTheShapeOfEveryCommand) {
  std::string commands;
  for (const auto& [step, printed] : RunSession("docs/json.md")) {
    commands += step.command;
    EXPECT_EQ(ShapeOf(printed), ShapeOf(step.output)) << "$ " << step.command << printed;
  }
  ForEachCommand([&commands](const std::vector<std::string>& path, const std::string& help) {
    std::string command = "perenna-access --json";
    for (const std::string& word : path) {
      command += " " + word;
    }
    const bool prints_text = path == std::vector<std::string>{"help"} || path == std::vector<std::string>{"manual"} ||
                             path == std::vector<std::string>{"completion"};
    EXPECT_TRUE(prints_text || help.find("\nCommands:\n") != std::string::npos ||
                commands.find(command + " ") != std::string::npos)
        << command << " is not shown";
  });
}

INSTANTIATE_TEST_SUITE_P(Documents, Documentation,
                         testing::Values("README.md", "docs/administration.md", "docs/host.md", "docs/policy-in-git.md",
                                         "docs/many-machines.md"),
                         [](const auto& document) {
                           std::string name = document.param;
                           std::replace_if(
                               name.begin(), name.end(), [](char c) { return std::isalnum(c) == 0; }, '_');
                           return name;
                         });

TEST(Readme, QuotesTheExampleHostWordForWord) {
  std::string quoted;
  for (const std::string& line : FencedLines(Contents(std::string(PERENNA_SOURCE_DIR) + "/README.md"), "cpp")) {
    quoted += line + "\n";
  }
  EXPECT_EQ(quoted, Contents(std::string(PERENNA_SOURCE_DIR) + "/examples/example_host.cpp"));
}

} // namespace Testing
