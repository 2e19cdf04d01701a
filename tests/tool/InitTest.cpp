// The command init: what it creates, what it refuses, and what is left behind when it stops half-way.

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>

#include <sys/stat.h>

#include <gmock/gmock.h>

#include "ToolDirectory.h"

namespace Testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

constexpr const char* First = "New password for \"admin\": ";
constexpr const char* Again = "The same once more: ";
constexpr const char* Offer = "[Y/n] ";

class Init : public ToolDirectory {
protected:
  void SetUp() override {} // no database yet

  using Dialogue = std::vector<std::pair<std::string, std::string>>;
  ToolResult AtTerminal(const Dialogue& dialogue, int signal = 0) const {
    return RunToolAtTerminal(File(), {"init"}, dialogue, signal);
  }
};

TEST_F(Init, AtATerminalAsksTwiceWithoutEchoAndOffersTheAdministrators) {
  const ToolResult made = AtTerminal({{First, "hunter2\r"},
                                      {Again, "hunter3\r"},
                                      {First, "Zx\x7fhunter2\r"},
                                      {Again, "wrong\x15Zhunter2\r"},
                                      {Offer, "perhaps\n"},
                                      {Offer, "\n"}});
  ASSERT_EQ(made.status, 0) << made.out;
  EXPECT_THAT(made.out, HasSubstr("They differ."));
  EXPECT_THAT(made.out, HasSubstr("Answer y or n."));
  EXPECT_THAT(made.out, HasSubstr("in the group \"administrators\"."));
  EXPECT_THAT(made.out, Not(HasSubstr("hunter")));
  EXPECT_TRUE(made.echo);

  struct stat status = {};
  ASSERT_EQ(stat(File().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0600U);
  EXPECT_THAT(Names(Place()), ElementsAre("access.db"));
  EXPECT_TRUE(Login("admin", "Zhunter2"));
  EXPECT_FALSE(Login("admin", "hunter2"));
  Run({{{"check", "admin", "DELETE", "/access/users/7"}, 0, "allowed\n", ""},
       {{"check", "admin", "GET", "/access/usersettings"}, 1, "refused\n", ""}});
}

TEST_F(Init, CancelledLeavesNoFileAndTheEchoOn) {
  const std::string ctrl_c = "\x03";
  const std::string ctrl_d = "\x04";
  const struct {
    Dialogue dialogue;
    int signal;
  } cases[] = {
      {{{First, ctrl_c}}, 0},
      {{{First, "half a pass" + ctrl_d}}, 0},
      {{{First, "secret\r"}, {Again, ctrl_c}}, 0},
      {{{First, "\r"}}, 0},          // empty
      {{{First, "arrow\x1b[A"}}, 0}, // no character of a password
      {{{First, "half a pass"}}, SIGTERM},
      {{{First, ""}}, SIGINT},
      {{{First, "secret\r"}, {Again, "secret\r"}, {Offer, ctrl_c}}, 0},
      {{{First, "secret\r"}, {Again, "secret\r"}, {Offer, ctrl_d}}, 0},
      {{{First, "1\r"}, {Again, "2\r"}, {First, "1\r"}, {Again, "2\r"}, {First, "1\r"}, {Again, "2\r"}}, 0},
  };
  for (const auto& [dialogue, signal] : cases) {
    const ToolResult ended = AtTerminal(dialogue, signal);
    SCOPED_TRACE(ended.out);
    EXPECT_THAT(ended.status, ::testing::AnyOf(2, 128 + SIGINT)); // by Ctrl-C outside of a password
    EXPECT_TRUE(ended.echo);
    EXPECT_THAT(ended.out, Not(HasSubstr("half")));
    EXPECT_THAT(Names(Place()), IsEmpty());
  }
}

TEST_F(Init, NeverTouchesAFileOrALinkThatExists) {
  const std::string other = PathBeside("other");
  std::ofstream(other) << "mine";
  for (const std::string kind : {"file", "link", "dangling link", "directory"}) {
    if (kind == "file") {
      std::ofstream(File()) << "";
    } else if (kind == "directory") {
      std::filesystem::create_directory(File());
    } else {
      std::filesystem::create_symlink(kind == "link" ? other : PathBeside("nothing"), File());
    }
    const ToolResult refused = Tool({"init", "--password-stdin"}, "secret\n");
    EXPECT_EQ(refused.status, 1) << kind;
    EXPECT_THAT(refused.err, HasSubstr("exists already")) << kind;
    EXPECT_THAT(Names(Place()), ElementsAre("access.db", "other")) << kind;
    EXPECT_EQ(Contents(other), "mine") << kind;
    std::filesystem::remove(File());
  }
}

TEST_F(Init, RefusalsNameTheOptionAndLeaveNothingBehind) {
  std::ofstream(PathBeside("empty")) << "";
  std::ofstream(PathBeside("line end")) << "\n";
  std::ofstream(PathBeside("two lines")) << "one\ntwo\n";
  std::ofstream(PathBeside("nul")) << std::string("a\0b\n", 4);
  std::ofstream(PathBeside("long")) << std::string(4097, 'x');
  const std::vector<std::string> before = Names(Place());
  const auto with_file = [this](const std::string& name) {
    return std::vector<std::string>{"init", "--password-file", PathBeside(name)};
  };
  Run({
      {{"init"}, 2, "", "there is no terminal to ask for a password at; give --password-stdin or --password-file"},
      {with_file("missing"), 2, "", "missing\": No such file or directory"},
      {with_file("."), 2, "", "Is a directory"},
      {with_file("empty"), 2, "", "is empty"},
      {with_file("line end"), 2, "", "is empty"},
      {with_file("two lines"), 2, "", "more than one line"},
      {with_file("nul"), 2, "", "a NUL byte"},
      {with_file("long"), 2, "", "longer than 4096 bytes"},
      {{"init", "--password-stdin"}, 2, "", "standard input is empty"},
      {{"init", "--password-stdin", "--password-file", "x"}, 2, "", "cannot be given together"},
      {{"init", "--password-stdin", "--thumbprint", std::string(40, 'a')}, 2, "", "not both", "pw\n"},
      {{"init", "--thumbprint", "abc"}, 2, "", "--thumbprint: \"abc\" is not a SHA-1 thumbprint"},
      {{"init", "--certificate", PathBeside("two lines")}, 2, "", "no X.509 certificate in PEM or DER form"},
      {{"init", "--certificate", PathBeside("missing")}, 2, "", "--certificate: cannot read"},
      {{"init", "--user", "", "--password-stdin"}, 2, "", "--user: the value is empty", "pw\n"},
      {{"init", "--administrators", "the admins", "--password-stdin"},
       2,
       "",
       "--administrators: \"the admins\"",
       "pw\n"},
      {{"init", "--administrators", "a", "--no-administrators", "--password-stdin"}, 2, "", "together", "pw\n"},
      {{"-d", PathBeside("no/such/access.db"), "init", "--password-stdin"}, 3, "", "No such file or directory", "pw\n"},
      {{"-d", "", "init", "--password-stdin"}, 2, "", "--database: the value is empty", "pw\n"},
  });
  EXPECT_EQ(Names(Place()), before);
}

// A server makes a directory that nobody can log in to; and who declined the administrators may want them later.
TEST_F(Init, CompletesADirectoryThatLacksUsersOrAdministrators) {
  ASSERT_EQ(Tool({"init", "--password-stdin", "--no-administrators"}, "pw\n").status, 0);
  const std::string done = "The user \"admin\" may now administer \"" + File() + "\" in the group \"ops\".\n";
  const Step administer = {{"check", "admin", "PUT", "/access/users"}, 0, "allowed\n", ""};
  Run({{{"init", "--password-stdin"}, 1, "", "exists already and has users", "pw\n"},
       {{"init", "--administrators", "ops", "--password-stdin"}, 1, "", "exists already and has users", "pw\n"},
       {{"init", "--administrators", "ops", "--user", "zoe"}, 1, "", "there is no user \"zoe\""},
       {{"init", "--administrators", "ops"}, 0, done, ""},
       {{"init", "--administrators", "ops"}, 0, done, ""}, // what is there stays
       administer});
  EXPECT_EQ(Query("SELECT count(*) FROM filters")[0][0], "7");
  Sql("DELETE FROM users; DELETE FROM groupusers");
  const std::string added = "Added the user \"admin\" to \"" + File() + "\" in the group \"ops\".\n";
  Run({{{"init", "--administrators", "ops", "--password-stdin"}, 0, added, "", "new\n"}, administer});
  EXPECT_TRUE(Login("admin", "new"));
}

// Rows of an earlier database's log would come back to life in the new one.
TEST_F(Init, RefusesNamesThatAreNotItsOwnFiles) {
  for (const char* const ending : {"-wal", "-shm", "-journal"}) {
    std::ofstream(File() + ending) << "";
    Run({{{"init", "--password-stdin"}, 1, "", "access.db" + std::string(ending) + "\" is left over", "pw\n"}});
    std::filesystem::remove(File() + ending);
  }
  for (const std::string name : {"file:access.db", ":memory:"}) {
    Run({{{"-d", name, "init", "--password-stdin"}, 2, "", "is no file name for a database", "pw\n"},
         {{"-d", name, "user", "list"}, 2, "", "is no file name for a database"}});
  }
  EXPECT_THAT(Names(Place()), IsEmpty());
}

TEST_F(Init, ReadsThePasswordFromAFileOrFromStandardInput) {
  std::ofstream(PathBeside("unix")) << "a pass word \n";
  std::ofstream(PathBeside("other system")) << "a pass word \r\n";
  std::ofstream(PathBeside("no line end")) << "a pass word ";
  for (const std::string source : {"unix", "other system", "no line end", "-"}) {
    std::vector<std::string> arguments = {"--json", "init", "--administrators", "ops", "--password-stdin"};
    if (source != "-") {
      arguments.back() = "--password-file=" + PathBeside(source);
    }
    const ToolResult made = Tool(arguments, "a pass word \n");
    ASSERT_EQ(made.status, 0) << source << made.err;
    EXPECT_EQ(nlohmann::json::parse(made.out),
              (nlohmann::json{{"created", File()}, {"user_id", "admin"}, {"group_id", "ops"}}));
    EXPECT_TRUE(Login("admin", "a pass word ")) << source;
    std::filesystem::remove(File());
  }
}

TEST_F(Init, StoresEveryFormOfACertificateInOneForm) {
  const std::string pem = PathBeside("client.pem");
  const std::string der = PathBeside("client.der");
  const auto openssl = [](std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"/usr/bin/env", "openssl"});
    const ToolResult finished = RunAtTerminal(arguments, {});
    EXPECT_EQ(finished.status, 0) << finished.out;
    return finished.out;
  };
  openssl({"req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-subj", "/CN=client",
           "-days", "2", "-keyout", PathBeside("key"), "-out", pem});
  openssl({"x509", "-in", pem, "-outform", "DER", "-out", der});
  std::string printed = openssl({"x509", "-in", pem, "-noout", "-fingerprint", "-sha1"});
  printed.resize(printed.find_last_not_of("\r\n") + 1);
  const std::string colons = printed.substr(printed.find('=') + 1);
  std::string digits = colons;
  digits.erase(std::remove(digits.begin(), digits.end(), ':'), digits.end());

  std::string stored;
  for (const std::vector<std::string>& option : std::vector<std::vector<std::string>>{{"--certificate", pem},
                                                                                      {"--certificate", der},
                                                                                      {"--thumbprint", printed},
                                                                                      {"--thumbprint", colons},
                                                                                      {"--thumbprint", digits},
                                                                                      {"--thumbprint", "stored"}}) {
    const std::string value = option[1] == "stored" ? stored : option[1];
    const ToolResult made = Tool({"init", "--no-administrators", option[0], value});
    ASSERT_EQ(made.status, 0) << value << made.err;
    const auto row = Query("SELECT auth_method, auth_value FROM users").front();
    EXPECT_EQ(row[0], "tls_client_certificate");
    EXPECT_EQ(row[1].size(), 28U);
    stored = stored.empty() ? row[1] : stored;
    EXPECT_EQ(row[1], stored) << value;
    std::filesystem::remove(File());
  }
}

} // namespace
} // namespace Testing
