// backup and restore: that a copy is whole, that the database is never left half or replaced by something else; and
// what can be read when the disk is full.

#include <filesystem>
#include <tuple>

#include "DirectoryFiles.h"

namespace Testing {
namespace {

using Backup = Transfer;

TEST_F(Backup, ComesBackWholeWhileAServerHasTheFileOpen) {
  const std::string copy = m_Place.File("copy.db");
  for (const char* const mode : {"DELETE", "WAL"}) {
    BareDatabase server(m_Database);
    server.Run(std::string("PRAGMA journal_mode = ") + mode + "; CREATE INDEX theirs" + mode +
               " ON filters(action); INSERT INTO groups VALUES('" + mode + "', 'in the log, under WAL')");
    const Contents before = ReadContents(m_Database);
    const ToolResult made = Tool({"backup", "--force", copy});
    ASSERT_EQ(made.status, 0) << made.err;
    EXPECT_EQ(std::filesystem::status(copy).permissions(), std::filesystem::perms(0600));
    EXPECT_EQ(ReadContents(copy), before) << mode;

    server.Run("INSERT INTO groups VALUES('later', ''); DROP INDEX theirs" + std::string(mode));
    const ToolResult restored = Tool({"restore", copy});
    EXPECT_EQ(restored.out.rfind("Restored 1 user, ", 0), 0U) << restored.err;
    EXPECT_EQ(ReadContents(m_Database), before) << mode;
    EXPECT_EQ(server.Query("SELECT count(*) FROM groups WHERE group_id = 'later'")[0][0], "0") << mode;
    server.Run("DROP INDEX theirs" + std::string(mode));
  }
  const std::string missing = m_Place.File("new.db");
  EXPECT_EQ(RunTool(missing, {"restore", copy}).status, 0);
  EXPECT_EQ(ReadContents(missing), ReadContents(copy));
  EXPECT_EQ(std::filesystem::status(missing).permissions(), std::filesystem::perms(0600));
}

TEST_F(Backup, RefusesWhatIsNoDirectoryOrTheDatabaseItself) {
  const auto file = [this](const std::string& name) { return m_Place.File(name); };
  std::filesystem::create_symlink(m_Database, file("link"));
  std::filesystem::create_hard_link(m_Database, file("hard"));
  Spill(file("junk"), "not a database at all");
  BareDatabase(file("other")).Run("CREATE TABLE notes(text)");
  ASSERT_EQ(Tool({"backup", file("damaged")}).status, 0);
  const std::string sound = Slurp(file("damaged"));
  BareDatabase(file("damaged"))
      .Run("INSERT INTO groups VALUES('g', 'x'); CREATE INDEX i ON groups(group_name);"
           "PRAGMA writable_schema = ON; UPDATE sqlite_master SET sql = 'CREATE INDEX i ON "
           "groups(group_id)' WHERE name = 'i'");
  Spill(file("users"), sound);
  BareDatabase(file("users")).Run("DELETE FROM users");
  Spill(file("stale.db-wal"), "");
  const Contents before = ReadContents(m_Database);
  const std::vector<std::tuple<std::vector<std::string>, int, std::string>> cases = {
      {{"restore", m_Database}, 2, "is the database itself"},
      {{"restore", file("link")}, 2, "is the database itself"},
      {{"restore", file("hard")}, 2, "is the database itself"},
      {{"restore", file("absent")}, 2, "does not exist"},
      {{"restore", file("junk")}, 3, "is not an access database"},
      {{"restore", file("other")}, 3, "is not an access database"},
      {{"restore", file("damaged")}, 3, "is damaged"},
      {{"restore", file("users")}, 2, "has no users"},
      {{"-d", file("other"), "restore", m_Database}, 1, "is not an access database"},
      {{"-d", file("junk"), "restore", m_Database}, 1, "is not an access database"},
      {{"-d", file("stale.db"), "restore", m_Database}, 1, "is left over"},
      {{"backup", file("link")}, 2, "is the database itself"},
      {{"backup", m_Database + "-wal"}, 2, "a part of the database"},
      {{"backup", file("users")}, 1, "--force replaces it"},
      {{"backup", file("stale.db")}, 1, "is left over"},
      {{"backup", "file:x"}, 2, "is no file name"},
  };
  for (const auto& [arguments, status, error] : cases) {
    const ToolResult refused = Tool(arguments);
    EXPECT_EQ(refused.status, status) << ::testing::PrintToString(arguments) << refused.err;
    EXPECT_NE(refused.err.find(error), std::string::npos) << refused.err;
  }
  EXPECT_EQ(ReadContents(m_Database), before);
  EXPECT_EQ(Slurp(file("junk")), "not a database at all");
  EXPECT_FALSE(std::filesystem::exists(file("stale.db")));
}

} // namespace
} // namespace Testing
