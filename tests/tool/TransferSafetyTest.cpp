// Imports that meet other programs, or a disk that fills up on the way: the directory is the old one or the new one.

#include <chrono>
#include <filesystem>
#include <set>
#include <thread>

#include <sys/wait.h>
#include <unistd.h>

#include "DirectoryFiles.h"
#include "support/HostileMachine.h"

namespace Testing {
namespace {

bool HasEnded(pid_t process) {
  siginfo_t info = {};
  return waitid(P_PID, static_cast<id_t>(process), &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid == process;
}

class TransferSafety : public Transfer {
protected:
  void SetUp() override {
    Transfer::SetUp();
    m_Old = ReadContents(m_Database);
    std::string users = User("root");
    for (std::size_t number = 1; number < Users; ++number) {
      users += "," + User("u" + std::to_string(number));
    }
    Spill(m_File, Document(users));
    std::filesystem::create_directory(m_Place.File("disk"));
  }

  static constexpr std::size_t Users = 1000;
  std::string m_File = m_Place.File("new.json");
  Contents m_Old;
};

TEST_F(TransferSafety, AnImportWaitsForAnotherWriterAndGivesUpInGoodOrder) {
  BareDatabase writer(m_Database);
  writer.Run("BEGIN IMMEDIATE");
  const ToolResult busy = Tool({"import", m_File});
  EXPECT_EQ(busy.status, 3) << busy.out;
  EXPECT_NE(busy.err.find("busy"), std::string::npos) << busy.err;
  const pid_t patient = StartTool(m_Database, {"import", m_File});
  std::this_thread::sleep_for(std::chrono::seconds(1));
  EXPECT_FALSE(HasEnded(patient));
  writer.Run("COMMIT");
  EXPECT_EQ(WaitFor(patient), 0);
  EXPECT_EQ(ReadContents(m_Database)[0].size(), Users);
}

TEST_F(TransferSafety, AnImportThatCannotCommitWhileSomebodyReadsChangesNothing) {
  BareDatabase reader(m_Database);
  reader.Run("BEGIN; SELECT count(*) FROM users");
  EXPECT_EQ(Tool({"import", m_File}).status, 3);
  reader.Run("COMMIT");
  EXPECT_EQ(ReadContents(m_Database), m_Old);
}

TEST_F(TransferSafety, AnImportThatFillsTheDiskChangesNothing) {
  const SmallDisk disk(m_Place.File("disk"), 192);
  if (!disk.Refusal().empty()) {
    GTEST_SKIP() << disk.Refusal();
  }
  for (const std::string mode : {"delete", "wal"}) {
    const std::string file = m_Place.File("disk/") + mode;
    std::filesystem::copy_file(m_Database, file);
    BareDatabase(file).Run("PRAGMA journal_mode = " + mode);
    const ToolResult full = RunTool(file, {"import", m_File});
    EXPECT_EQ(full.status, 3) << full.out;
    EXPECT_NE(full.err.find("full"), std::string::npos) << full.err;
    EXPECT_EQ(ReadContents(file), m_Old) << mode;
    std::filesystem::remove(file);
  }
}

// A tuned file needs room beside it even to be read by several programs.
TEST_F(TransferSafety, AFullDiskLetsATunedFileBeReadByOneAtATime) {
  const SmallDisk disk(m_Place.File("disk"), 128);
  if (!disk.Refusal().empty()) {
    GTEST_SKIP() << disk.Refusal();
  }
  ASSERT_EQ(Tool({"tune"}).status, 0);
  const std::string full = m_Place.File("disk/access.db");
  std::filesystem::copy_file(m_Database, full);
  Spill(m_Place.File("disk/ballast"), std::string(200000, 'b'));
  EXPECT_EQ(RunTool(full, {"user", "list"}).out, Tool({"user", "list"}).out);
  EXPECT_EQ(RunTool(full, {"export", "-"}).out, Tool({"export", "-"}).out);
  const std::vector<std::pair<ToolResult, std::string>> refusals = {
      {RunTool(full, {"group", "add", "x"}), "No space left on device; a file with write-ahead logging needs room"},
      {Tool({"export", m_Place.File("disk/out.json")}), "disk/out.json\": No space left on device"}};
  for (const auto& [refused, reason] : refusals) {
    EXPECT_EQ(refused.status, 3);
    EXPECT_NE(refused.err.find(reason), std::string::npos) << refused.err;
  }
}

TEST_F(TransferSafety, ASignalAmidAnExportOrABackupLeavesNothingBehind) {
  Fill("WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 200000) INSERT INTO filters SELECT "
       "'GET',"
       " 'g', '^/some/long/path/' || i, 'Allow' FROM n");
  const auto names = [this] {
    std::set<std::string> found;
    for (const auto& entry : std::filesystem::directory_iterator(m_Place.Path())) {
      found.insert(entry.path().filename());
    }
    return found;
  };
  const std::set<std::string> before = names();
  for (const std::string command : {"export", "backup"}) {
    ToolProcess tool(m_Database, {command, m_Place.File("copy")});
    for (int waited = 0; names().size() == before.size() && waited < 20000; ++waited) {
      usleep(500); // until its unfinished file is there
    }
    kill(tool.Id(), SIGTERM);
    EXPECT_EQ(tool.Wait(), 128 + SIGTERM) << command;
    EXPECT_EQ(names(), before) << command;
  }
}

} // namespace
} // namespace Testing
