// The completions, in the shells that are there, and the manual page.

#include <algorithm>
#include <fstream>
#include <sstream>

#include <gmock/gmock.h>

#include "ToolDirectory.h"

namespace Testing {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using Words = std::vector<std::string>;

bool IsInstalled(const std::string& program) {
  return RunAtTerminal({"/bin/sh", "-c", "command -v " + program}, {}).status == 0;
}

class Completion : public ToolDirectory {
protected:
  void SetUp() override {
    ToolDirectory::SetUp();
    Sql("INSERT INTO users SELECT column1, 'plain_pw', 'x', '', '' FROM (VALUES('alice'), ('ann@example.org'), ('an "
        "n'),"
        "('$(touch pwned)'), ('a;b'), ('a' || char(27) || '[2J'), ('-a'), ('a\xc3\xa9'), (''), ('a*'));"
        "INSERT INTO groups VALUES('editors', 'e'), ('readers', 'r')");
  }

  /// What the tool offers for the words, the last of which is being typed; "files" for file names.
  Words Offered(Words words, const std::string& database) const {
    words.insert(words.begin(), {"complete", "--"});
    const ToolResult result = RunTool(database, words);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    std::istringstream lines(result.out);
    std::string line;
    std::getline(lines, line);
    Words offered;
    if (line == "files") {
      offered.push_back(line);
    }
    while (std::getline(lines, line)) {
      offered.push_back(line.substr(0, line.find('\t')));
    }
    return offered;
  }
  Words Offered(const Words& words) const { return Offered(words, File()); }

  /// What bash offers for a command line with the cursor at its end.
  std::string AskBash(const std::string& line) const {
    const std::string script = "source <(\"$0\" completion bash); COMP_LINE=$1; COMP_POINT=${#1}; COMP_WORDS=(\"$0\");"
                               "readline_word=${1##*[[:space:]=\\\"\\'<>|:]};"
                               "_perenna_access perenna-access \"$readline_word\" x; printf '<%s>' \"${COMPREPLY[@]}\"";
    return RunAtTerminal({"/usr/bin/env", "bash", "-c", "export PERENNA_ACCESS_DATABASE='" + File() + "';" + script,
                          PERENNA_ACCESS_TOOL, line},
                         {})
        .out;
  }
};

TEST_F(Completion, OffersWhatMayComeNext) {
  EXPECT_THAT(Offered({"us"}), ElementsAre("user"));
  EXPECT_THAT(Offered({"user", "set-"}), ElementsAre("set-groups", "set-password", "set-certificate"));
  EXPECT_THAT(Offered({"help", "filter", "l"}), ElementsAre("list"));
  EXPECT_THAT(Offered({"xyz", ""}), IsEmpty());
  EXPECT_THAT(Offered({"user", "list", "--"}),
              ElementsAre("--help", "--skip", "--limit", "--database", "--config", "--json", "--verbose"));
  EXPECT_THAT(Offered({"--json", "-d", "x", "user", "list", "--limit", "1", "--"}),
              ElementsAre("--help", "--skip", "--verbose"));
  EXPECT_THAT(Offered({"user", "list", "--limit", ""}), IsEmpty());
  EXPECT_THAT(Offered({"--database", ""}), ElementsAre("files"));
  EXPECT_THAT(Offered({"user", "add", "x", "--password-file=/t"}), ElementsAre("files"));
  EXPECT_THAT(Offered({"filter", "add", "editors", "D"}), ElementsAre("Deny"));
  EXPECT_THAT(Offered({"filter", "add", "editors", "Deny", "GET,P"}), ElementsAre("GET,POST", "GET,PUT", "GET,PATCH"));
  EXPECT_THAT(Offered({"completion", ""}), ElementsAre("bash", "fish", "zsh"));
  EXPECT_THAT(Offered({""}), Not(Contains("complete"))); // hidden
}

TEST_F(Completion, OffersStoredIdsThatAShellCannotMisread) {
  EXPECT_THAT(Offered({"user", "show", ""}), ElementsAre("alice", "ann@example.org", "root"));
  EXPECT_THAT(Offered({"user", "show", "an"}), ElementsAre("ann@example.org"));
  EXPECT_THAT(Offered({"user", "delete", "root", "--", "a"}), ElementsAre("alice", "ann@example.org"));
  EXPECT_THAT(Offered({"user", "set-groups", "alice", ""}), ElementsAre("editors", "readers"));
  EXPECT_THAT(Offered({"user", "add", "new", "--group=e"}), ElementsAre("--group=editors"));
  EXPECT_THAT(Offered({"--database=" + File(), "group", "show", "r"}, "/nowhere"), ElementsAre("readers"));
  EXPECT_THAT(Offered({"user", "add", ""}), IsEmpty()); // a new id
  for (const std::string& database : {std::string(), PathBeside("none"), std::string(PERENNA_ACCESS_TOOL)}) {
    EXPECT_THAT(Offered({"user", "show", "a"}, database), IsEmpty()) << database; // and no word about it
  }
}

TEST_F(Completion, WorksInBash) {
  EXPECT_EQ(AskBash("perenna-access us"), "<user>");
  EXPECT_EQ(AskBash("perenna-access user show \"al"), "<alice>");
  EXPECT_EQ(AskBash("perenna-access user show 'ann@"), "<ann@example.org>");
  EXPECT_EQ(AskBash("perenna-access user add x --group=e"), "<editors>"); // bash keeps what is before "="
  EXPECT_EQ(AskBash("perenna-access --database "), "<>");
  EXPECT_EQ(AskBash("perenna-access user show a\\ "), "<>");
}

TEST_F(Completion, ScriptsAreWhatTheirShellsUnderstand) {
  const struct {
    std::string shell;
    std::string check;
  } cases[] = {{"bash", "-n"}, {"zsh", "-n"}, {"fish", "--no-execute"}};
  for (const auto& [shell, check] : cases) {
    if (!IsInstalled(shell)) {
      std::cout << shell << " is not installed: its script is not checked\n";
      continue;
    }
    const std::string file = PathBeside(shell);
    std::ofstream(file) << RunTool("", {"completion", shell}).out;
    const ToolResult result = RunAtTerminal({"/usr/bin/env", shell, check, file}, {});
    EXPECT_EQ(result.status, 0) << shell << result.out;
    EXPECT_EQ(result.out, "") << shell;
  }
}

TEST_F(Completion, WorksInFish) {
  if (!IsInstalled("fish")) {
    GTEST_SKIP() << "fish is not installed";
  }
  const std::string home = Place();
  const auto ask = [&](const std::string& line) {
    const ToolResult result = RunAtTerminal(
        {"/usr/bin/env", "HOME=" + home, "PERENNA_ACCESS_DATABASE=" + File(), "fish", "--no-config", "-c",
         "eval ($argv[1] completion fish | string collect); complete -C $argv[2]", PERENNA_ACCESS_TOOL, line},
        {});
    return result.out;
  };
  const std::string tool = PERENNA_ACCESS_TOOL;
  EXPECT_THAT(ask(tool + " user sh"), HasSubstr("show\tShow one user"));
  EXPECT_EQ(ask(tool + " user show ann@"), "ann@example.org\r\n");
  EXPECT_EQ(ask(tool + " --database=" + File().substr(0, File().size() - 2)), "--database=" + File() + "\r\n");
}

TEST_F(Completion, TheManualPageIsWellFormedAndComplete) {
  const std::string file = PathBeside("perenna-access.1");
  std::ofstream(file) << RunTool("", {"manual"}).out;
  if (IsInstalled("groff")) {
    EXPECT_EQ(RunAtTerminal({"/bin/sh", "-c", "groff -man -ww -z \"$0\"", file}, {}).out, "");
  }
  if (IsInstalled("mandoc")) {
    EXPECT_EQ(RunAtTerminal({"/bin/sh", "-c", "mandoc -Tlint -Werror \"$0\"", file}, {}).status, 0);
  }
  // Everything that --help says, with roff's escapes undone.
  std::string page = Contents(file);
  const std::pair<std::string, std::string> escapes[] = {
      {"\\-", "-"},   {"\\fB", ""},   {"\\fI", ""},   {"\\fR", ""}, {"\\(aq", "'"}, {"\\(dq", "\""},
      {"\\(ha", "^"}, {"\\(ti", "~"}, {"\\(ga", "`"}, {"\\&", ""},  {"\\e", "\\"}};
  for (const auto& [escape, text] : escapes) {
    for (std::size_t at = page.find(escape); at != std::string::npos; at = page.find(escape, at + text.size())) {
      page.replace(at, escape.size(), text);
    }
  }
  std::vector<Words> commands = {{}};
  for (std::size_t i = 0; i < commands.size(); ++i) {
    Words arguments = commands[i];
    arguments.emplace_back("--help");
    std::istringstream help(RunTool("", arguments).out);
    std::string section;
    for (std::string line; std::getline(help, line);) {
      if (line.rfind("Usage: ", 0) == 0 && i > 0) {
        EXPECT_THAT(page, HasSubstr(".SS \"" + line.substr(7) + "\"\n"));
      } else if (!line.empty() && line[0] != ' ') {
        section = line;
      } else if (line.size() > 2 && line[2] != ' ' && section == "Commands:") {
        Words subcommand = commands[i];
        subcommand.push_back(line.substr(2, line.find(' ', 2) - 2));
        commands.push_back(subcommand);
      } else if (line.size() > 2 && line[2] != ' ' && (section == "Options:" || section.rfind("Example", 0) == 0)) {
        const std::string term = section == "Options:" ? line.substr(2, line.find("  ", 2) - 2) : line;
        EXPECT_THAT(page, HasSubstr(term + "\n")) << ::testing::PrintToString(commands[i]);
      }
    }
  }
  EXPECT_GT(commands.size(), 20U);
}

} // namespace
} // namespace Testing
