// The file locked by another process: the module waits its time, then reports a failure.

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <thread>

#include "support/AccessDirectory.h"

using namespace Testing;

namespace {

class Busy : public AccessDirectory {
protected:
  Tarn::Result_t CreateFilter() {
    return Manager().CreateFilter(Fields("method=GET group_id=g filter=/ action=Allow"));
  }
  ~Busy() override { LetGo(); }

  /// Another process locks the file, writes to it and waits for `LetGo`.
  void Hold(const std::string& begin) {
    const std::string command = "exec sqlite3 -bail '" + File() + "' >/dev/null";
    m_Other = popen(command.c_str(), "w"); // NOLINT(cert-env33-c): the command is the test's own
    ASSERT_NE(m_Other, nullptr);
    Tell(begin + "; INSERT INTO filters VALUES('PUT', 'g', '/', 'Allow');\n.shell touch '" + PathBeside("held") +
         "'\n");
    for (int tries = 0; !std::filesystem::exists(PathBeside("held")); ++tries) {
      ASSERT_LT(tries, 1000) << "the other process does not get the lock";
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  }
  void LetGo() {
    if (m_Other != nullptr) {
      Tell("COMMIT;\n");
      pclose(m_Other);
      m_Other = nullptr;
    }
  }
  static std::string NineTries(const std::string& what) {
    std::string lines;
    for (int tries = 0; tries < 9; ++tries) {
      lines += "D:Locked database, retrying \"" + what + "\".\n";
    }
    return lines + "D:Locked database, timed out.\n";
  }

private:
  void Tell(const std::string& text) {
    EXPECT_GE(std::fputs(text.c_str(), m_Other), 0);
    EXPECT_EQ(std::fflush(m_Other), 0);
  }

  std::FILE* m_Other = nullptr;
};

// Keeps readers and writers out whatever the journal mode, as long as nobody else has read the file yet.
const std::string Exclusively = "PRAGMA locking_mode = EXCLUSIVE; BEGIN EXCLUSIVE";

} // namespace

TEST_F(Busy, AnExclusiveLockFailsAnOperationAfterNineTriesToPrepare) {
  Hold(Exclusively);
  EXPECT_EQ(CreateFilter(), Perenna::RESULT_DB_FAILURE);
  EXPECT_EQ(Log(), NineTries("prepare") + "E:No prepared statement for query \"INSERT INTO filters VALUES(?,?,?,?)\": "
                                          "DB_FAILURE (-420).\n");
  LetGo();
  EXPECT_EQ(CreateFilter(), Tarn::RESULT_FALSE);
  EXPECT_EQ(Log(), "");
}

TEST_F(Busy, AQuestionUnderAnExclusiveLockIsAnsweredNo) {
  Run("INSERT INTO groupusers VALUES('g', 'root'); INSERT INTO filters VALUES('GET', 'g', '/', 'Allow')");
  Hold(Exclusively);
  EXPECT_FALSE(May("root", "GET /"));
  EXPECT_EQ(Log().find(NineTries("prepare")), 0U);
  LetGo();
  EXPECT_TRUE(May("root", "GET /"));
}

TEST_F(Busy, AWriterFailsAnotherWriterAfterNineTriesToStepAndNoReader) {
  Run("INSERT INTO groupusers VALUES('g', 'root'); INSERT INTO filters VALUES('GET', 'g', '/', 'Allow')");
  EXPECT_TRUE(May("root", "GET /")); // the connection knows the schema from here on
  Hold("BEGIN IMMEDIATE");
  EXPECT_EQ(CreateFilter(), Perenna::RESULT_DB_FAILURE);
  EXPECT_EQ(Log(), NineTries("step"));
  EXPECT_TRUE(May("root", "GET /") && !May("root", "PUT /"));
  LetGo();
  EXPECT_TRUE(May("root", "PUT /"));
  EXPECT_EQ(CreateFilter(), Tarn::RESULT_FALSE);
  EXPECT_EQ(Log(), "");
}

TEST_F(Busy, ALockReleasedInTimeOnlyDelays) {
  Hold(Exclusively);
  std::string lines;
  std::thread module([&] { EXPECT_EQ(CreateFilter(), Tarn::RESULT_FALSE); });
  for (int tries = 0; lines.empty() && tries < 500; ++tries) { // until it was refused once
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    lines = Log();
  }
  LetGo();
  module.join();
  EXPECT_EQ(lines.find("D:Locked database, retrying \"prepare\".\n"), 0U);
  EXPECT_EQ(Log().find("timed out"), std::string::npos);
}
