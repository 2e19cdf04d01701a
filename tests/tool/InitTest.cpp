// The command init: what it creates, what it refuses, and what is left behind when it stops half-way.

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

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

  EXPECT_EQ(std::filesystem::status(File()).permissions(), std::filesystem::perms(0600));
  EXPECT_THAT(Names(Place()), ElementsAre("access.db"));
  EXPECT_TRUE(Login("admin", "Zhunter2"));
  EXPECT_FALSE(Login("admin", "hunter2"));
  Run({{{"check", "admin", "DELETE", "/access/users/7"}, 0, "allowed\n", ""},
       {{"check", "admin", "GET", "/accessories"}, 1, "refused\n", ""}});
}

TEST_F(Init, CancelledLeavesNoFileAndTheEchoOn) {
  const std::string ctrl_c = "\x03";
  const std::string ctrl_d = "\x04";
  const std::vector<std::pair<Dialogue, int>> cases = {
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
  const std::vector<std::function<void()>> obstacles = {[this] { std::ofstream(File()) << ""; },
                                                        [&] { std::filesystem::create_symlink(other, File()); },
                                                        [this] { std::filesystem::create_symlink("nothing", File()); },
                                                        [this] { std::filesystem::create_directory(File()); }};
  for (const auto& make : obstacles) {
    make();
    Run({{{"init", "--password-stdin"}, 1, "", "exists already", "secret\n"}});
    EXPECT_THAT(Names(Place()), ElementsAre("access.db", "other"));
    EXPECT_EQ(Contents(other), "mine");
    std::filesystem::remove(File());
  }
}

TEST_F(Init, RefusalsNameTheOptionAndLeaveNothingBehind) {
  const std::vector<std::pair<std::string, std::string>> files = {{"", "is empty"},
                                                                  {"\n", "is empty"},
                                                                  {"one\ntwo\n", "more than one line"},
                                                                  {std::string("a\0b\n", 4), "a NUL byte"},
                                                                  {std::string(4097, 'x'), "longer than 4096 bytes"}};
  const std::string file = PathBeside("password");
  std::ofstream(file) << "";
  const std::vector<std::string> before = Names(Place());
  for (const auto& [text, error] : files) {
    std::ofstream(file) << text;
    Run({{{"init", "--password-file", file}, 2, "", error}});
  }
  Run({
      {{"init"}, 2, "", "there is no terminal to ask for a password at; give --password-stdin or --password-file"},
      {{"init", "--password-file", PathBeside("missing")}, 2, "", "missing\": No such file or directory"},
      {{"init", "--password-file", Place()}, 2, "", "Is a directory"},
      {{"init", "--password-stdin"}, 2, "", "standard input is empty"},
      {{"init", "--password-stdin", "--password-file", "x"}, 2, "", "cannot be given together"},
      {{"init", "--password-stdin", "--thumbprint", std::string(40, 'a')}, 2, "", "not both", "pw\n"},
      {{"init", "--thumbprint", "abc"}, 2, "", "--thumbprint: \"abc\" is not a SHA-1 thumbprint"},
      {{"init", "--certificate", file}, 2, "", "no X.509 certificate in PEM or DER form"},
      {{"init", "--certificate", PathBeside("missing")}, 2, "", "--certificate: cannot read"},
      {{"init", "--owner", "no such user", "--password-stdin"}, 2, "", "--owner: this machine has no user", "pw\n"},
      {{"init", "--user", "", "--password-stdin"}, 2, "", "--user: the value is empty", "pw\n"},
      {{"init", "--user", "a:b", "--password-stdin"}, 2, "", "--user: \"a:b\" holds a colon", "pw\n"},
      {{"init", "--administrators", "a b", "--password-stdin"}, 2, "", "--administrators: \"a b\"", "pw\n"},
      {{"init", "--administrators", "a", "--no-administrators"}, 2, "", "together"},
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

// A file that only root may open keeps the service from starting; one of a newer program means something else.
TEST_F(Init, MakesFilesForTheServiceThatKnowsTheirVersion) {
  // NOLINTBEGIN(concurrency-mt-unsafe): the test has one thread
  const bool root = geteuid() == 0;
  const std::string owner = root ? "nobody" : getpwuid(geteuid())->pw_name;
  ASSERT_EQ(Tool({"init", "--owner", owner, "--password-stdin", "--no-administrators"}, "pw\n").status, 0);
  struct stat status = {};
  ASSERT_EQ(stat(File().c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, getpwnam(owner.c_str())->pw_uid);
  // NOLINTEND(concurrency-mt-unsafe)
  EXPECT_EQ(status.st_mode & 07777U, 0600U);
  Sql("INSERT INTO version_info VALUES('2.1.0', 2, 1, 0, '{}')");
  Run({{{"init", "--owner", owner, "--password-stdin"}, 1, "", "--owner is for a file that init makes", "pw\n"},
       {{"user", "list"}, 3, "", "is of version \"2.1.0\""}});
}

TEST_F(Init, ReadsThePasswordFromAFileOrFromStandardInput) {
  const std::string file = PathBeside("password");
  for (const std::string text : {"a pass word \n", "a pass word \r\n", "a pass word "}) {
    std::ofstream(file) << text;
    for (const std::string& source : {"--password-file=" + file, std::string("--password-stdin")}) {
      const ToolResult made = Tool({"--json", "init", "--administrators", "ops", source}, text);
      ASSERT_EQ(made.status, 0) << source << made.err;
      EXPECT_EQ(nlohmann::json::parse(made.out),
                (nlohmann::json{{"created", File()}, {"user_id", "admin"}, {"group_id", "ops"}}));
      EXPECT_TRUE(Login("admin", "a pass word ")) << source;
      std::filesystem::remove(File());
    }
  }
}

TEST_F(Init, StoresEveryFormOfACertificateInOneForm) {
  const std::string pem = PathBeside("client.pem");
  const std::string der = PathBeside("client.der");
  const std::string make = "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -subj /CN=client "
                           "-keyout /dev/null -out '" +
                           pem + "' 2>/dev/null; openssl x509 -in '" + pem + "' -outform DER -out '" + der +
                           "'; openssl x509 -in '" + pem + "' -noout -fingerprint -sha1";
  std::string printed = RunAtTerminal({"/bin/sh", "-c", make}, {}).out;
  printed.resize(printed.find_last_not_of("\r\n") + 1);
  const std::string colons = printed.substr(printed.find('=') + 1);
  std::string digits = colons;
  digits.erase(std::remove(digits.begin(), digits.end(), ':'), digits.end());

  std::string stored;
  for (const std::string& value : {pem, der, printed, colons, digits, std::string("stored")}) {
    const bool is_file = value == pem || value == der;
    const ToolResult made = Tool({"init", "--no-administrators", is_file ? "--certificate" : "--thumbprint",
                                  value == "stored" ? stored : value});
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
