// An import that is killed, and two administrators at once: the directory is the old one or the new one.

#include <chrono>
#include <csignal>
#include <filesystem>
#include <random>
#include <thread>

#include <sys/wait.h>

#include "DirectoryFiles.h"

namespace Testing {
namespace {

using Clock = std::chrono::steady_clock;
using Microseconds = std::chrono::microseconds;

// In each of two journal modes.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int Kills = 6; // they take several times as long
constexpr int KillsInTransaction = 2;
#else
constexpr int Kills = 25;
constexpr int KillsInTransaction = 5;
#endif
constexpr int Users = 1000; // enough for a transaction of many moments

/// Fills a database with a directory of its own, every text of which begins with `name`.
void Fill(const std::string& file, const std::string& name) {
  BareDatabase bare(file);
  const std::string numbers =
      "WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM n WHERE i + 1 < " + std::to_string(Users) + ") ";
  bare.Run("DELETE FROM users");
  const auto text = [&name](const std::string& more) { return "'" + name + more + "' || i"; };
  bare.Run(numbers + "INSERT INTO users SELECT " + text("u") + ", 'plain_pw', " + text("p") + ", " + text("d") + ", " +
           text("u") + " FROM n");
  bare.Run(numbers + "INSERT INTO groups SELECT " + text("g") + ", " + text("n") + " FROM n WHERE i % 10 = 0");
  bare.Run(numbers + "INSERT INTO groupusers SELECT " + text("g") + ", " + text("u") + " FROM n");
  bare.Run(numbers + "INSERT INTO filters SELECT 'GET', " + text("g") + ", " + text("/") + ", 'Allow' FROM n");
}

bool HasEnded(pid_t process) {
  siginfo_t info = {};
  return waitid(P_PID, static_cast<id_t>(process), &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid == process;
}

class TransferSafety : public ::testing::Test {
protected:
  void SetUp() override {
    for (const std::string name : {"old", "new"}) {
      const std::string file = m_Place.File(name);
      CreateDatabase(file);
      Fill(file, name);
    }
    ASSERT_EQ(RunTool(m_Place.File("new"), {"export", m_File}).status, 0);
    m_Old = ReadContents(m_Place.File("old"));
    m_New = ReadContents(m_Place.File("new"));
    ASSERT_NE(m_Old, m_New);
  }

  /// Puts the old directory back, under a journal mode.
  void Restore(const std::string& journal_mode) const {
    for (const char* const suffix : {"", "-journal", "-wal", "-shm"}) {
      std::filesystem::remove(m_Database + suffix);
    }
    std::filesystem::copy_file(m_Place.File("old"), m_Database);
    BareDatabase(m_Database).Run("PRAGMA journal_mode = " + journal_mode);
  }

  /// Waits until the import has begun its transaction, or has ended it; false when the process ended before.
  bool WaitForTransaction(pid_t process, bool begun) const {
    BareDatabase probe(m_Database);
    while (!HasEnded(process)) {
      const int rc = sqlite3_exec(probe.Handle(), "BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
      EXPECT_TRUE(rc == SQLITE_OK || rc == SQLITE_BUSY) << sqlite3_errmsg(probe.Handle());
      sqlite3_exec(probe.Handle(), "ROLLBACK", nullptr, nullptr, nullptr);
      if ((rc == SQLITE_BUSY) == begun) {
        return true;
      }
      std::this_thread::sleep_for(Microseconds(300));
    }
    return false;
  }

  TemporaryDirectory m_Place;
  std::string m_Database = m_Place.File("access.db");
  std::string m_File = m_Place.File("new.json");
  Contents m_Old;
  Contents m_New;
};

TEST_F(TransferSafety, AKilledImportLeavesTheOldDirectoryOrTheNewOne) {
  const unsigned seed = std::random_device{}();
  std::mt19937 random(seed);
  const auto within = [&random](Microseconds longest) {
    return Microseconds(std::uniform_int_distribution<long long>(0, longest.count())(random));
  };
  for (const char* const mode : {"DELETE", "WAL"}) {
    // How long it takes undisturbed, as a measure for when to kill.
    Restore(mode);
    const auto start = Clock::now();
    const pid_t undisturbed = StartTool(m_Database, {"import", m_File});
    WaitForTransaction(undisturbed, true);
    const auto begun = Clock::now();
    WaitForTransaction(undisturbed, false);
    const auto transaction = std::chrono::duration_cast<Microseconds>(Clock::now() - begun);
    ASSERT_EQ(WaitFor(undisturbed), 0);
    const auto whole = std::chrono::duration_cast<Microseconds>(Clock::now() - start);
    ASSERT_EQ(ReadContents(m_Database), m_New);

    int in_transaction = 0;
    int with_hot_journal = 0;
    int completed = 0;
    int round = 0;
    // A machine that has other things to do may be late with many kills: then there are more of them.
    for (; round < Kills || (in_transaction < KillsInTransaction && round < 20 * Kills); ++round) {
      Restore(mode);
      const bool anywhere = round % 5 == 0; // the others aim at the transaction
      const pid_t process = StartTool(m_Database, {"import", m_File});
      const bool seen = !anywhere && WaitForTransaction(process, true);
      const Microseconds delay = within(anywhere ? whole : transaction);
      std::this_thread::sleep_for(delay);
      kill(process, SIGKILL);
      const int status = WaitFor(process);
      std::error_code absent;
      const auto journal_bytes = std::filesystem::file_size(m_Database + "-journal", absent);
      with_hot_journal += !absent && journal_bytes > 0 ? 1 : 0;

      const Contents found = ReadContents(m_Database);
      const bool is_old = found == m_Old;
      ASSERT_TRUE(is_old || found == m_New)
          << "a mixture: seed " << seed << ", mode " << mode << ", round " << round << ", killed after "
          << delay.count() << " us" << (seen ? " of the transaction" : "");
      ASSERT_FALSE(is_old && status == 0) << "reported as done, yet nothing was imported: seed " << seed;
      // The transaction was seen to have begun, and the old directory stands: it was killed before the end of it.
      in_transaction += seen && is_old ? 1 : 0;
      completed += is_old ? 0 : 1;
    }
    std::cout << "seed " << seed << ", journal mode " << mode << ": " << in_transaction << " of " << round
              << " killed inside the transaction (" << with_hot_journal << " left a hot journal), " << completed
              << " after it\n";
    EXPECT_GE(in_transaction, KillsInTransaction) << "seed " << seed << ", mode " << mode;
  }
}

TEST_F(TransferSafety, AnImportWaitsForAnotherWriterAndGivesUpInGoodOrder) {
  Restore("DELETE");
  BareDatabase writer(m_Database);
  writer.Run("BEGIN IMMEDIATE");
  const ToolResult busy = RunTool(m_Database, {"import", m_File});
  EXPECT_EQ(busy.status, 3) << busy.out << busy.err;
  EXPECT_NE(busy.err.find("busy"), std::string::npos) << busy.err;
  const pid_t patient = StartTool(m_Database, {"import", m_File});
  std::this_thread::sleep_for(std::chrono::seconds(1));
  EXPECT_FALSE(HasEnded(patient));
  writer.Run("COMMIT");
  EXPECT_EQ(WaitFor(patient), 0);
  EXPECT_EQ(ReadContents(m_Database), m_New);
}

TEST_F(TransferSafety, AnImportThatCannotCommitWhileSomebodyReadsChangesNothing) {
  Restore("DELETE");
  BareDatabase reader(m_Database);
  reader.Run("BEGIN");
  EXPECT_EQ(reader.Query("SELECT count(*) FROM users"), std::vector<BareDatabase::Row>{{std::to_string(Users)}});
  const ToolResult blocked = RunTool(m_Database, {"import", m_File});
  EXPECT_EQ(blocked.status, 3) << blocked.err;
  reader.Run("COMMIT");
  EXPECT_EQ(ReadContents(m_Database), m_Old);
}

} // namespace
} // namespace Testing
