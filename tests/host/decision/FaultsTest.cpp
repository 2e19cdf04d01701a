// A database that fails is no answer; one that was replaced never becomes one again.

#include <filesystem>
#include <fstream>

#include "host/decision/JudgedDirectory.h"
#include "support/HostileMachine.h"

using namespace Testing;

namespace {

class FailingDirectory : public JudgedDirectory {
protected:
  void SetUp() override {
    JudgedDirectory::SetUp();
    AddGroup("g", {"root"});
    AddFilter("GET g ^/ Allow");
  }
  /// The outcome for a target that nobody has asked for yet, so that no cache knows it.
  std::string Fresh() { return Outcome("GET /" + std::to_string(++m_Count), "root:root"); }
  std::string Bytes() const {
    std::ifstream stream(File(), std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }
  void OverwriteInPlace(std::size_t position, const std::string& bytes) const {
    std::fstream stream(File(), std::ios::binary | std::ios::in | std::ios::out);
    stream.seekp(static_cast<std::streamoff>(position)).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  }

private:
  int m_Count = 0;
};

} // namespace

TEST_F(FailingDirectory, IsUnavailableWhileItFailsAndRecovers) {
  EXPECT_EQ(Outcome("GET /kept", "root:root"), "allowed");
  {
    BareDatabase writer(File());
    writer.Run("BEGIN EXCLUSIVE");
    EXPECT_EQ(Outcome("GET /kept", "root:root"), "unavailable") << "kept, but nobody knows whether it still holds";
    EXPECT_EQ(Answer(), "503|X-Access-Outcome: unavailable|Retry-After: 1");
    EXPECT_FALSE(TheJudge().IsReady());
    EXPECT_EQ(Outcome("GET /kept", ""), "unauthenticated") << "for this the directory is not asked";
    writer.Run("COMMIT");
  }
  EXPECT_EQ(Fresh(), "allowed");
  EXPECT_TRUE(TheJudge().IsReady());
  for (const std::string table : {"filters", "groupusers", "users", "groups"}) {
    Run("ALTER TABLE " + table + " RENAME TO away");
    EXPECT_EQ(Fresh(), "unavailable") << table;
    Run("ALTER TABLE away RENAME TO " + table);
    Fresh(); // SQLite may complain once about what it knew of the schema
    EXPECT_EQ(Fresh(), "allowed") << table;
  }
  EXPECT_EQ(m_TimesGone, 0);
}

TEST_F(FailingDirectory, IsUnavailableWhereItsPagesAreDamaged) {
  Run("PRAGMA journal_mode = WAL");
  const std::size_t page_bytes = std::stoul(Rows("PRAGMA page_size"));
  for (const std::string table : {"filters", "users"}) {
    Run("UPDATE groups SET group_name = '" + table + "'"); // connections look again once something was committed
    Run("PRAGMA wal_checkpoint(TRUNCATE)");
    const std::string root = Rows("SELECT rootpage FROM sqlite_master WHERE name = '" + table + "'");
    const std::size_t damaged = (std::stoul(root) - 1) * page_bytes;
    const std::string bytes = Bytes().substr(damaged, 8);
    OverwriteInPlace(damaged, std::string(8, '\x7f'));
    EXPECT_EQ(Fresh(), "unavailable") << table;
    OverwriteInPlace(damaged, bytes);
    Run("UPDATE groups SET group_name = 'mended'");
    EXPECT_EQ(Fresh(), "allowed") << table;
  }
}

TEST_F(FailingDirectory, AnswersFromAFileThatCannotBeWritten) {
  const TemporaryDirectory place;
  SmallDisk disk(place.Path(), 512);
  if (!disk.Refusal().empty()) {
    GTEST_SKIP() << disk.Refusal();
  }
  Settings().database_filename = place.File("access.db");
  std::filesystem::copy_file(File(), Settings().database_filename);
  ASSERT_TRUE(disk.MakeReadOnly());
  EXPECT_EQ(Fresh(), "allowed");
}

TEST_F(FailingDirectory, IsGoneOnceAnotherFileStandsInItsPlace) {
  const std::string kept = PathBeside("kept.db");
  const std::function<void()> changes[] = {
      [&] { std::filesystem::rename(File(), kept); },
      [&] {
        std::filesystem::copy_file(File(), kept);
        std::filesystem::rename(kept, File());
      },
      [&] { OverwriteInPlace(0, Bytes()); },
  };
  int number = 0;
  for (const auto& change : changes) {
    Host::DecisionContext context(Settings(), 1, [this] { ++m_TimesGone; });
    Host::Judge judge(context);
    const auto ask = [&](Host::Credentials::Kind kind) {
      Host::Question question;
      question.method = Perenna::METH_GET;
      question.target = "/";
      question.credentials.kind = kind;
      question.credentials.user_id = question.credentials.password = "root";
      judge.BeginGroup();
      return judge.Decide(question).What();
    };
    ASSERT_EQ(ask(Host::Credentials::Kind::Password), Host::Outcome::Allowed) << number;
    change();
    EXPECT_EQ(ask(Host::Credentials::Kind::Password), Host::Outcome::Unavailable) << number;
    if (!std::filesystem::exists(File())) {
      std::filesystem::rename(kept, File());
    }
    EXPECT_EQ(ask(Host::Credentials::Kind::Password), Host::Outcome::Unavailable) << number << " came back";
    EXPECT_EQ(ask(Host::Credentials::Kind::None), Host::Outcome::Unavailable) << number;
    EXPECT_THROW(Host::Judge another(context), std::exception) << number;
    EXPECT_EQ(m_TimesGone, ++number);
  }
}
