// What all commands have in common: help, mistakes on the command line, the database they name, and their output.

#include <csignal>
#include <filesystem>
#include <fstream>

#include <gmock/gmock.h>

#include "ToolDirectory.h"

namespace Testing {
namespace {

using ::testing::HasSubstr;

/// One command line for each command that works on a database; "root" and "g" exist.
const std::vector<Arguments> Commands = {
    "user add new --password-stdin",
    "user delete root --force",
    "user list",
    "user show root",
    "user set-groups root --none",
    "user set-password root --password-stdin",
    "user set-certificate root --thumbprint 0123456789abcdef0123456789abcdef01234567",
    "group add new",
    "group delete g",
    "group list",
    "group show g",
    "group set-members g root",
    "filter add g Allow GET /",
    "filter delete g Allow GET /",
    "filter list",
    "check root GET /",
    "check root GET / --explain",
    "check --stdin",
    "methods root /",
    "lint",
    "tune",
    "tune --dry-run",
    "export -"};

class CommandLine : public ToolDirectory {};

TEST_F(CommandLine, EveryHelpFitsTheScreenAndIsInTheManual) {
  const std::string roff = PathBeside("perenna-access.1");
  std::ofstream(roff) << RunTool("", {"manual"}).out;
  const ToolResult page = RunAtTerminal({"/bin/sh", "-c", "groff -man -ww -Tascii -P-cbou -rLL=60n \"$0\"", roff}, {});
  EXPECT_THAT(page.out, ::testing::StartsWith("PERENNA-ACCESS(1)")); // no warning
  EXPECT_THAT(page.out, ::testing::AllOf(HasSubstr("\nFILES\r\n"), HasSubstr("\nSEE ALSO\r\n")));
  for (const char* const other : {"perenna-access.json", "perenna-access-host"}) {
    std::ofstream(roff) << RunTool("", {"manual", other}).out;
    EXPECT_EQ(RunAtTerminal({"/bin/sh", "-c", "groff -man -ww -Tascii \"$0\" >/dev/null", roff}, {}).out, "") << other;
  }
  int commands = 0;
  ForEachCommand([&](const std::vector<std::string>& path, const std::string& help) {
    SCOPED_TRACE(::testing::PrintToString(path));
    ++commands;
    Arguments arguments = {"help"};
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
  const std::pair<Arguments, std::string> cases[] = {
      {{}, "which command of \"perenna-access\"?\n  init "},
      {"user", "which command of \"perenna-access user\"?\n  add "},
      {"usr list", "\"usr\" is not a command of \"perenna-access\"\nDid you mean \"user\"?\n\"perenna-access --help\""},
      {"help user lsit", "\"lsit\" is not a command of \"perenna-access user\"\nDid you mean \"list\"?"},
      {"user xyz", "\"xyz\" is not a command of \"perenna-access user\"\n\"perenna-access user --help\" tells"},
      {"user list --limt 3", "unknown option --limt\nDid you mean \"--limit\"?\n\"perenna-access user list --help\""},
      {"user list --jsn", "unknown option --jsn\nDid you mean \"--json\"?"},
      {"user list 3", "unexpected argument \"3\""},
      {"user list --limit", "--limit needs a value: NUMBER"},
      {"user list --limit 1 --limit 2", "--limit is given more than once"},
      {"user show", "USER is missing; usage: perenna-access user show [OPTIONS] USER"},
      {"-d a -c b user list", "--database and --config cannot be given together"},
      {"user show -rf", "unknown option -r"},
      {"user show a \x1b[2J", "unexpected argument \"\\x1b[2J\""},
      {"completion tcsh", "{bash,fish,zsh}"},
      {"--color red lint", "{auto,always,never}"},
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
      {"group list", 0, "GROUP  NAME  USERS\n", ""},
      {{"-d", other, "group", "list"}, 0, listed, ""},
      {{"group", "list", "--database=" + other}, 0, listed, ""},
      {{"group", "list", "--config", PathBeside("host.json")}, 0, listed, ""},
      {{"group", "list", "--database", ""}, 2, "", "--database: the value is empty"},
      {{"group", "list", "--config", PathBeside("empty.json")},
       2,
       "",
       "LocalAccessManager.DatabaseFilename: {} is not accepted"},
      {{"group", "list", "--config", PathBeside("broken.json")}, 2, "", "is not JSON"},
      {{"group", "list", "--config", PathBeside("none.json")}, 2, "", "cannot be read: No such file"},
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
    for (const Arguments& command : number++ < 2 ? Commands : std::vector<Arguments>{"group add g", "user list"}) {
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
  Sql("INSERT INTO users SELECT 'user' || value, 'sha256', 'x', '', '' FROM (WITH RECURSIVE n(value) AS (SELECT 1 "
      "UNION ALL SELECT value + 1 FROM n "
      "LIMIT 2000) SELECT value FROM n)");
  for (const Arguments& command : std::vector<Arguments>{"user list", "check root GET /", "manual", "check --stdin"}) {
    for (const auto sigpipe : {ToolProcess::Sigpipe::Default, ToolProcess::Sigpipe::Ignored}) {
      ToolProcess tool(File(), command, ToolProcess::Reader::IsGone, sigpipe);
      if (command.back() == "--stdin") {
        tool.Write("root GET /\n"); // the stream ends, although more questions may come
      }
      EXPECT_EQ(tool.Wait(), sigpipe == ToolProcess::Sigpipe::Default ? 128 + SIGPIPE : 3)
          << ::testing::PrintToString(command);
      EXPECT_EQ(tool.Finish().err, "");
    }
  }
}

TEST_F(CommandLine, OutputThatCannotBeWrittenIsAFailure) {
  for (const std::string command : {"user list", "check root GET / --explain --json", "--version", "help"}) {
    for (const std::string target : {">/dev/full", ">&-"}) {
      const std::string line = "\"$0\" -d \"$1\" " + command + target;
      const ToolResult result = RunAtTerminal({"/bin/sh", "-c", line, PERENNA_ACCESS_TOOL, File()}, {});
      EXPECT_EQ(result.status, 3) << line;
      EXPECT_THAT(result.out, HasSubstr("the output could not be written")) << line;
    }
  }
}

TEST_F(CommandLine, AdministratorsAtOnceLoseNothing) {
  constexpr int Rounds = 8;
  Sql("INSERT INTO groups VALUES('g', 'g')");
  std::vector<pid_t> running;
  for (int round = 10; round < 10 + Rounds; ++round) {
    const std::string id = std::to_string(round);
    for (const Arguments& command :
         {Arguments{"user", "add", id, "--group", "g", "--thumbprint", std::string(38, '1') + id},
          Arguments{"group", "add", id}, Arguments{"filter", "add", "g", "Allow", "GET", id}}) {
      running.push_back(StartTool(File(), command));
    }
    for (; round % 2 == 1 && !running.empty(); running.pop_back()) { // six at once
      EXPECT_EQ(WaitFor(running.back()), 0) << round;
    }
  }
  for (const std::string rows :
       {"users WHERE user_id <> 'root'", "groups WHERE group_id <> 'g'", "filters", "groupusers"}) {
    EXPECT_EQ(Query("SELECT count(*) FROM " + rows).front().front(), std::to_string(Rounds)) << rows;
  }
}

TEST_F(CommandLine, AFileLockedByAnotherProgramIsWaitedForOrSaidToBeBusy) {
  BareDatabase holder(File());
  holder.Run("BEGIN EXCLUSIVE");
  for (const Arguments& command : std::vector<Arguments>{"group add g", "check root GET /"}) {
    Run({{command, 3, "", "is busy: another program holds it locked"}});
  }
  const pid_t waiting = StartTool(File(), {"group", "add", "g"});
  holder.Run("ROLLBACK");
  EXPECT_EQ(WaitFor(waiting), 0);
  EXPECT_EQ(holder.Query("SELECT group_id FROM groups").size(), 1U);
}

} // namespace
} // namespace Testing
