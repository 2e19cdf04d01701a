// What all commands have in common: help, mistakes on the command line, the database they name, and their output.

#include <csignal>
#include <filesystem>
#include <fstream>

#include <gmock/gmock.h>

#include "ToolDirectory.h"

namespace Testing {
namespace {

using ::testing::HasSubstr;

using Command = std::vector<std::string>;

/// One command line for each command that works on a database; "root" and "g" exist.
const std::vector<Command> Commands = {
    {"user", "add", "new", "--password-stdin"},
    {"user", "delete", "root", "--force"},
    {"user", "list"},
    {"user", "show", "root"},
    {"user", "set-groups", "root", "--none"},
    {"user", "set-password", "root", "--password-stdin"},
    {"user", "set-certificate", "root", "--thumbprint", "0123456789abcdef0123456789abcdef01234567"},
    {"group", "add", "new"},
    {"group", "delete", "g"},
    {"group", "list"},
    {"group", "show", "g"},
    {"group", "set-members", "g", "root"},
    {"filter", "add", "g", "Allow", "GET", "/"},
    {"filter", "delete", "g", "Allow", "GET", "/"},
    {"filter", "list"},
    {"check", "root", "GET", "/"},
    {"check", "root", "GET", "/", "--explain"},
    {"check", "--stdin"},
    {"methods", "root", "/"},
    {"lint"},
    {"tune"},
    {"tune", "--dry-run"},
    {"export", "-"}};

class CommandLine : public ToolDirectory {};

TEST_F(CommandLine, EveryHelpFitsTheScreenAndIsInTheManual) {
  const std::string roff = PathBeside("perenna-access.1");
  std::ofstream(roff) << RunTool("", {"manual"}).out;
  const ToolResult page = RunAtTerminal({"/bin/sh", "-c", "groff -man -ww -Tascii -P-cbou -rLL=60n \"$0\"", roff}, {});
  EXPECT_THAT(page.out, ::testing::StartsWith("PERENNA-ACCESS(1)")); // no warning
  EXPECT_THAT(page.out, ::testing::AllOf(HasSubstr("\nFILES\r\n"), HasSubstr("\nSEE ALSO\r\n")));
  int commands = 0;
  ForEachCommand([&](const Command& path, const std::string& help) {
    SCOPED_TRACE(::testing::PrintToString(path));
    ++commands;
    Command arguments = {"help"};
    arguments.insert(arguments.end(), path.begin(), path.end());
    EXPECT_EQ(RunTool("", arguments).out, help);
    EXPECT_THAT(help, HasSubstr("\nUsage: perenna-access"));
    bool options = false;
    std::istringstream lines(help);
    for (std::string line; std::getline(lines, line);) {
      EXPECT_LE(line.size(), 100U) << line;
      options = line == "Options:" || (options && !line.empty());
      if (const std::size_t name = line.find("--"); options && name < 7 && line.find("--help") != name) {
        EXPECT_THAT(page.out, HasSubstr(line.substr(name, line.find(' ', name) - name))); // in one piece
      }
    }
  });
  EXPECT_GT(commands, 20);
}

TEST_F(CommandLine, MistakesAreNamedAndTheHelpIsPointedOut) {
  const struct {
    Command arguments;
    std::string error;
  } cases[] = {
      {{}, "which command of \"perenna-access\"?\n  init "},
      {{"user"}, "which command of \"perenna-access user\"?\n  add "},
      {{"usr", "list"},
       "\"usr\" is not a command of \"perenna-access\"\nDid you mean \"user\"?\n\"perenna-access --help\""},
      {{"user", "lsit"}, "\"lsit\" is not a command of \"perenna-access user\"\nDid you mean \"list\"?"},
      {{"help", "user", "lsit"}, "\"lsit\" is not a command of \"perenna-access user\"\nDid you mean \"list\"?"},
      {{"user", "xyz"}, "\"xyz\" is not a command of \"perenna-access user\"\n\"perenna-access user --help\" tells"},
      {{"user", "list", "--limt", "3"},
       "unknown option --limt\nDid you mean \"--limit\"?\n\"perenna-access user list --help\""},
      {{"user", "list", "--jsn"}, "unknown option --jsn\nDid you mean \"--json\"?"},
      {{"user", "list", "-x"}, "unknown option -x\n"},
      {{"user", "list", "3"}, "unexpected argument \"3\""},
      {{"user", "list", "--limit"}, "--limit needs a value: NUMBER"},
      {{"user", "list", "--limit", "1", "--limit", "2"}, "--limit is given more than once"},
      {{"user", "show"}, "USER is missing; usage: perenna-access user show [OPTIONS] USER"},
      {{"filter", "add", "g", "Allow"}, "METHOD is missing"},
      {{"-d", "a", "-c", "b", "user", "list"}, "--database and --config cannot be given together"},
      {{"user", "show", "-rf"}, "unknown option -r"},
      {{"user", "show", "a", "\x1b[2J"}, "unexpected argument \"\\x1b[2J\""},
      {{"completion", "tcsh"}, "{bash,fish,zsh}"},
      {{"--color", "red", "lint"}, "{auto,always,never}"},
  };
  for (const auto& [arguments, error] : cases) {
    const ToolResult result = RunTool("", arguments);
    EXPECT_EQ(result.status, 2) << ::testing::PrintToString(arguments);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, ::testing::StartsWith("perenna-access: "));
    EXPECT_THAT(result.err, HasSubstr(error)) << ::testing::PrintToString(arguments);
  }
  EXPECT_EQ(RunTool("", {"user", "list", "x", "--json"}).err,
            "{\"error\":{\"kind\":\"usage\",\"status\":2,\"message\":\"unexpected argument \\\"x\\\"\\n"
            "\\\"perenna-access user list --help\\\" tells what it takes.\"}}\n");
}

TEST_F(CommandLine, TheDatabaseIsNamedByOptionConfigurationOrEnvironment) {
  const std::string other = PathBeside("other.db");
  std::filesystem::copy_file(File(), other);
  BareDatabase(other).Run("INSERT INTO groups VALUES('other', 'o')");
  std::ofstream(PathBeside("host.json")) << R"({"LocalAccessManager": {"DatabaseFilename": ")" << other << R"("}})";
  std::ofstream(PathBeside("empty.json")) << R"({"LocalAccessManager": {"DatabaseFilename": {}}})";
  std::ofstream(PathBeside("broken.json")) << "{";
  const std::string listed = "GROUP  NAME  USERS\nother  o     -\n";
  Run({
      {{"group", "list"}, 0, "GROUP  NAME  USERS\n", ""},
      {{"-d", other, "group", "list"}, 0, listed, ""},
      {{"group", "list", "--database=" + other}, 0, listed, ""},
      {{"group", "list", "--config", PathBeside("host.json")}, 0, listed, ""},
      {{"group", "list", "--database", ""}, 2, "", "--database: the value is empty"},
      {{"group", "list", "--config", PathBeside("empty.json")}, 2, "", "names no database"},
      {{"group", "list", "--config", PathBeside("broken.json")}, 2, "", "is not a JSON object"},
      {{"group", "list", "--config", PathBeside("none.json")}, 2, "", "--config: cannot read"},
  });
  EXPECT_THAT(RunTool("", {"group", "list"}).err,
              HasSubstr("which database? Give --database FILE or --config FILE, or set PERENNA_ACCESS_DATABASE"));
}

TEST_F(CommandLine, WhatIsNoAccessDatabaseStaysAsItIs) {
  const std::string file = PathBeside("other");
  const struct {
    std::string path;
    std::function<void()> make;
    std::string error;
  } cases[] = {
      {PathBeside("missing.db"), [] {}, "does not exist or is not a file"},
      {file, [&] { std::ofstream(file) << std::string(3000, 'x'); }, "is not an access database"},
      {Place(), [] {}, "does not exist or is not a file"},
      {PathBeside("no/such.db"), [] {}, "does not exist or is not a file"},
      {file, [&] { std::ofstream(file, std::ios::trunc) << ""; }, "is not an access database"},
      {file, [&] { BareDatabase(file).Run("CREATE TABLE users(name TEXT); INSERT INTO users VALUES('mine')"); },
       "is not"},
      {file, [&] { std::ofstream(file, std::ios::binary) << Contents(File()).substr(0, 2000); }, "is not an access"},
      {file,
       [&] {
         std::filesystem::copy_file(File(), file, std::filesystem::copy_options::overwrite_existing);
         BareDatabase(file).Run("ALTER TABLE filters DROP COLUMN action");
       },
       "is not an access database"},
  };
  int number = 0;
  for (const auto& [path, make, error] : cases) {
    make();
    const auto content = [&path = path] { return std::filesystem::is_regular_file(path) ? Contents(path) : ""; };
    const std::string before = content();
    const auto names = Names(Place());
    for (const Command& command :
         number++ < 2 ? Commands : std::vector<Command>{{"group", "add", "g"}, {"user", "list"}}) {
      SCOPED_TRACE(path + ::testing::PrintToString(command));
      const ToolResult result = RunTool(path, command, "password\n");
      EXPECT_EQ(result.status, 3) << result.out;
      EXPECT_THAT(result.err, HasSubstr(error));
      EXPECT_TRUE(content() == before);
      EXPECT_EQ(Names(Place()), names);
    }
  }
}

TEST_F(CommandLine, AReaderThatHasGoneAwayEndsTheOutputQuietly) {
  std::string rows;
  for (int i = 0; i < 2000; ++i) { // more than any buffer
    rows += "INSERT INTO users VALUES('user" + std::to_string(i) + "', 'sha256', 'x', '', '');";
  }
  Sql("BEGIN;" + rows + "COMMIT");
  for (const Command& command : std::vector<Command>{{"user", "list"}, {"check", "root", "GET", "/"}, {"manual"}}) {
    for (const auto sigpipe : {ToolProcess::Sigpipe::Default, ToolProcess::Sigpipe::Ignored}) {
      ToolProcess tool(File(), command, ToolProcess::Reader::IsGone, sigpipe);
      const ToolResult result = tool.Finish();
      EXPECT_EQ(result.err, "") << ::testing::PrintToString(command);
      EXPECT_EQ(result.status, sigpipe == ToolProcess::Sigpipe::Default ? 128 + SIGPIPE : 3)
          << ::testing::PrintToString(command);
    }
  }
  // A stream ends, although more questions wait.
  ToolProcess stream(File(), {"check", "--stdin"}, ToolProcess::Reader::IsGone, ToolProcess::Sigpipe::Ignored);
  stream.Write("root GET /\n");
  EXPECT_EQ(stream.Wait(), 3);
}

TEST_F(CommandLine, OutputThatCannotBeWrittenIsAFailure) {
  for (const std::string command : {"user list", "check root GET / --explain --json", "--version", "help"}) {
    for (const std::string target : {">/dev/full", ">&-"}) {
      std::string line = "\"$0\" -d \"$1\" ";
      line.append(command).append(target);
      const ToolResult result = RunAtTerminal({"/bin/sh", "-c", line, PERENNA_ACCESS_TOOL, File()}, {});
      EXPECT_EQ(result.status, 3) << command << target;
      EXPECT_THAT(result.out, HasSubstr("the output could not be written")) << command << target;
    }
  }
}

TEST_F(CommandLine, AdministratorsAtOnceLoseNothing) {
  constexpr int Administrators = 6;
  constexpr int Rounds = 4;
  Sql("INSERT INTO groups VALUES('g', 'g')");
  for (int round = 0; round < Rounds; ++round) {
    std::vector<std::pair<Command, pid_t>> running;
    for (int i = 0; i < Administrators; ++i) {
      const std::string id = std::to_string(round) + "-" + std::to_string(i);
      const Command command = i % 3 == 0   ? Command{"user",
                                                   "add",
                                                   id,
                                                   "--group",
                                                   "g",
                                                   "--thumbprint",
                                                   std::string(38, '1') + std::to_string(10 * round + i + 10)}
                              : i % 3 == 1 ? Command{"group", "add", id}
                                           : Command{"filter", "add", "g", "Allow", "GET", id};
      running.emplace_back(command, StartTool(File(), command));
    }
    for (const auto& [command, process] : running) {
      EXPECT_EQ(WaitFor(process), 0) << ::testing::PrintToString(command);
    }
  }
  const std::string each = std::to_string(Administrators / 3 * Rounds);
  for (const char* const count :
       {"users WHERE user_id <> 'root'", "groups WHERE group_id <> 'g'", "filters", "groupusers"}) {
    EXPECT_EQ(Query(std::string("SELECT count(*) FROM ") + count).front().front(), each) << count;
  }
}

TEST_F(CommandLine, AFileLockedByAnotherProgramIsWaitedForOrSaidToBeBusy) {
  const Command add = {"group", "add", "g"};
  {
    BareDatabase holder(File());
    holder.Run("BEGIN EXCLUSIVE");
    const ToolResult busy = Tool(add);
    EXPECT_EQ(busy.status, 3);
    EXPECT_THAT(busy.err, HasSubstr("is busy: another program holds it locked"));
    const pid_t waiting = StartTool(File(), add);
    holder.Run("ROLLBACK");
    EXPECT_EQ(WaitFor(waiting), 0);
  }
  EXPECT_EQ(Query("SELECT group_id FROM groups").size(), 1U);
}

} // namespace
} // namespace Testing
