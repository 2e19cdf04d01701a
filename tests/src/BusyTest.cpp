// The file locked by another process: the module waits its time, then reports a failure.

#include <algorithm>
#include <array>

#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/AccessDirectory.h"

using namespace Testing;

namespace {

/// A process of its own that runs SQL on a file, keeps what it locks, and lets go. Made before this process opens the
/// file, since SQLite's connections do not survive a fork.
class LockingProcess {
public:
  LockingProcess() {
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0) {
      throw std::runtime_error("cannot create a socket pair");
    }
    m_End = ends[0];
    m_Process = fork();
    if (m_Process == 0) {
      close(ends[0]);
      Serve(ends[1]);
    }
    close(ends[1]);
  }
  ~LockingProcess() { LetGo(); }
  LockingProcess(const LockingProcess&) = delete;
  LockingProcess& operator=(const LockingProcess&) = delete;

  /// Runs `sql` and keeps the connection for `milliseconds` or until `LetGo`. Empty, or why it failed.
  std::string Lock(const std::string& file, const std::string& sql, int milliseconds) {
    for (const std::string& part : {file, sql, std::to_string(milliseconds)}) {
      Send(m_End, part);
    }
    return Receive(m_End);
  }
  void LetGo() {
    if (m_Process > 0) {
      close(m_End);
      waitpid(m_Process, nullptr, 0);
      m_Process = -1;
    }
  }

private:
  // A message is a packet with one byte before its text, so that an empty text is no end of file.
  static void Send(int end, const std::string& text) {
    const std::string packet = "!" + text;
    send(end, packet.data(), packet.size(), MSG_NOSIGNAL);
  }
  static std::string Receive(int end) {
    std::array<char, 4096> packet{};
    const ssize_t count = recv(end, packet.data(), packet.size(), 0);
    return count <= 0 ? "the other process is gone"
                      : std::string(packet.data() + 1, static_cast<std::size_t>(count) - 1);
  }
  [[noreturn]] static void Serve(int end) {
    try {
      const std::string file = Receive(end);
      const std::string sql = Receive(end);
      const int milliseconds = std::stoi(Receive(end));
      BareDatabase bare(file);
      bare.Run(sql);
      Send(end, "");
      pollfd closed{end, POLLIN, 0};
      poll(&closed, 1, milliseconds);
      bare.Run("COMMIT");
    } catch (const std::exception& failure) {
      Send(end, failure.what());
    }
    _exit(0);
  }

  int m_End = -1;
  pid_t m_Process = -1;
};

class Busy : public AccessDirectory {
protected:
  Tarn::Result_t CreateFilter() {
    return Manager().CreateFilter(Dict({{"method", "GET"}, {"group_id", "g"}, {"filter", "/"}, {"action", "Allow"}}));
  }
  void Hold(const std::string& begin, int milliseconds) {
    ASSERT_EQ(other.Lock(File(), begin + "; INSERT INTO filters VALUES('PUT', 'g', '/', 'Allow')", milliseconds), "");
  }
  static Lines NineTries(const std::string& what) {
    Lines lines(9, DebugLine("Locked database, retrying \"" + what + "\".\n"));
    lines.push_back(DebugLine("Locked database, timed out.\n"));
    return lines;
  }

  LockingProcess other;
};

// Keeps readers and writers out whatever the journal mode, as long as nobody else has read the file yet.
const std::string Exclusively = "PRAGMA locking_mode = EXCLUSIVE; BEGIN EXCLUSIVE";
constexpr int LongerThanAllTries = 2000;

} // namespace

TEST_F(Busy, AnExclusiveLockFailsAnOperationAfterNineTriesToPrepare) {
  Hold(Exclusively, LongerThanAllTries);
  EXPECT_EQ(CreateFilter(), Perenna::RESULT_DB_FAILURE);
  Lines expected = NineTries("prepare");
  expected.push_back(
      ErrorLine("No prepared statement for query \"INSERT INTO filters VALUES(?,?,?,?)\": DB_FAILURE (-420).\n"));
  EXPECT_EQ(Log(), expected);
  other.LetGo();
  EXPECT_EQ(CreateFilter(), Tarn::RESULT_FALSE);
  EXPECT_EQ(Log(), Lines{});
}

TEST_F(Busy, AQuestionUnderAnExclusiveLockIsAnsweredNo) {
  Run("INSERT INTO groupusers VALUES('g', 'root'); INSERT INTO filters VALUES('GET', 'g', '/', 'Allow')");
  Hold(Exclusively, LongerThanAllTries);
  EXPECT_FALSE(May("root", Perenna::METH_GET, "/"));
  EXPECT_EQ(Log().size(), 11U);
  other.LetGo();
  EXPECT_TRUE(May("root", Perenna::METH_GET, "/"));
}

TEST_F(Busy, AWriterFailsAnotherWriterAfterNineTriesToStepAndNoReader) {
  Run("INSERT INTO groupusers VALUES('g', 'root'); INSERT INTO filters VALUES('GET', 'g', '/', 'Allow')");
  EXPECT_TRUE(May("root", Perenna::METH_GET, "/")); // the connection knows the schema from here on
  Hold("BEGIN IMMEDIATE", LongerThanAllTries);
  EXPECT_EQ(CreateFilter(), Perenna::RESULT_DB_FAILURE);
  EXPECT_EQ(Log(), NineTries("step"));
  EXPECT_TRUE(May("root", Perenna::METH_GET, "/"));
  EXPECT_FALSE(May("root", Perenna::METH_PUT, "/"));
  other.LetGo();
  EXPECT_TRUE(May("root", Perenna::METH_PUT, "/"));
  EXPECT_EQ(CreateFilter(), Tarn::RESULT_FALSE);
  EXPECT_EQ(Log(), Lines{});
}

TEST_F(Busy, ALockReleasedInTimeOnlyDelays) {
  Hold(Exclusively, 300);
  EXPECT_EQ(CreateFilter(), Tarn::RESULT_FALSE);
  const Lines lines = Log();
  EXPECT_GE(lines.size(), 1U);
  EXPECT_EQ(static_cast<std::size_t>(
                std::count(lines.begin(), lines.end(), DebugLine("Locked database, retrying \"prepare\".\n"))),
            lines.size());
}
