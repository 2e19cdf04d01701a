// The file locked by another connection: the module waits its time, then reports a failure.

#include "support/AccessDirectory.h"

using namespace Testing;

namespace {

class Busy : public AccessDirectory {};

} // namespace

TEST_F(Busy, AnOperationFailsAfterNineTriesAndAQuestionIsAnsweredNo) {
  const Perenna::PListDict filter = Fields("method=GET group_id=g filter=/ action=Allow");
  Run("INSERT INTO groupusers VALUES('g', 'root'); INSERT INTO filters VALUES('GET', 'g', '/', 'Allow')");
  const auto nine_tries = [](const std::string& what) {
    std::string lines;
    for (int tries = 0; tries < 9; ++tries) {
      lines += "D:Locked database, retrying \"" + what + "\".\n";
    }
    return lines + "D:Locked database, timed out.\n";
  };
  {
    // Keeps readers out in every journal mode, as long as nobody else has read the file yet.
    BareDatabase other(File());
    other.Run("PRAGMA locking_mode = EXCLUSIVE; BEGIN EXCLUSIVE");
    EXPECT_FALSE(May("root", "GET /"));
    EXPECT_EQ(Log().find(nine_tries("prepare")), 0U);
  }
  EXPECT_TRUE(May("root", "GET /"));
  BareDatabase other(File());
  other.Run("BEGIN IMMEDIATE");
  EXPECT_EQ(Manager().CreateFilter(filter), Perenna::RESULT_DB_FAILURE);
  EXPECT_EQ(Log(), nine_tries("step"));
  EXPECT_TRUE(May("root", "GET /")) << "a writer keeps no reader out";
  other.Run("COMMIT");
  EXPECT_EQ(Manager().CreateFilter(filter), Tarn::RESULT_FALSE);
  EXPECT_EQ(Log(), "");
}
