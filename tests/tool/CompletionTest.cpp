// The completions, in the shells that are there.

#include <algorithm>
#include <fstream>
#include <sstream>

#include <gmock/gmock.h>

#include "ToolDirectory.h"

namespace Testing {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using Words = std::vector<std::string>;

class Completion : public ToolDirectory {
protected:
  void SetUp() override {
    ToolDirectory::SetUp();
    Sql("INSERT INTO users SELECT column1, 'plain_pw', 'x', '', '' FROM (VALUES('alice'), ('ann@example.org'),"
        "('an n'), ('$(touch pwned)'), ('a;b'), ('a' || char(27) || '[2J'), ('-a'), ('a\xc3\xa9'), (''), ('a*'));"
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
    Words offered(line == "files" ? 1 : 0, line);
    while (std::getline(lines, line)) {
      offered.push_back(line.substr(0, line.find('\t')));
    }
    return offered;
  }
  Words Offered(const Words& words) const { return Offered(words, File()); }

  /// What bash offers for a command line with the cursor at its end.
  std::string AskBash(const std::string& line) const {
    const std::string script = "export PERENNA_ACCESS_DATABASE=$2; source <(\"$0\" completion bash); COMP_LINE=$1; "
                               "COMP_POINT=${#1}; COMP_WORDS=(\"$0\");"
                               "readline_word=${1##*[[:space:]=\\\"\\'<>|:]};"
                               "_perenna_access perenna-access \"$readline_word\" x; printf '<%s>' \"${COMPREPLY[@]}\"";
    return RunAtTerminal({"/usr/bin/env", "bash", "-c", script, PERENNA_ACCESS_TOOL, line, File()}, {}).out;
  }
};

TEST_F(Completion, OffersWhatMayComeNext) {
  EXPECT_THAT(Offered({"us"}), ElementsAre("user"));
  EXPECT_THAT(Offered({"user", "set-"}), ElementsAre("set-groups", "set-password", "set-certificate"));
  EXPECT_THAT(Offered({"help", "filter", "l"}), ElementsAre("list"));
  EXPECT_THAT(Offered({"xyz", ""}), IsEmpty());
  EXPECT_THAT(Offered({"user", "list", "--"}),
              ElementsAre("--help", "--search", "--group", "--skip", "--limit", "--csv", "--jsonl", "--database",
                          "--config", "--audit", "--json", "--yes", "--no-wait", "--verbose", "--color", "--wide"));
  EXPECT_THAT(Offered({"--json", "-d", "x", "user", "list", "--limit", "1", "--"}),
              ElementsAre("--help", "--search", "--group", "--skip", "--csv", "--jsonl", "--audit", "--yes",
                          "--no-wait", "--verbose", "--color", "--wide"));
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
  const std::pair<std::string, std::string> checks[] = {{"bash", "-n"}, {"zsh", "-n"}, {"fish", "--no-execute"}};
  for (const auto& [shell, check] : checks) {
    const std::string file = PathBeside(shell);
    std::ofstream(file) << RunTool("", {"completion", shell}).out;
    std::string line = "! command -v ";
    line.append(shell).append(" >/dev/null || ").append(shell).append(" ").append(check);
    line.append(" '").append(file).append("'");
    const ToolResult result = RunAtTerminal({"/bin/sh", "-c", line}, {});
    EXPECT_EQ(result.status, 0) << shell << result.out;
    EXPECT_EQ(result.out, "") << shell;
  }
}

} // namespace
} // namespace Testing
