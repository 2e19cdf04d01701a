// Entry points, the two singletons and the database file.

#include "LocalAccessManager.h"

#include <algorithm>
#include <atomic>
#include <cctype>
#include <filesystem>
#include <set>
#include <thread>

#include "support/AccessDirectory.h"
#include "support/HostileMachine.h"

using namespace Testing;
using LocalAccessManager::UserManager;
using ::testing::ElementsAre;

namespace {

std::ptrdiff_t OpenDescriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator());
}

void ExpectClosed(UserManager& manager) {
  std::string expected = "no no no no no no ";
  for (int operation = 0; operation < 11; ++operation) {
    expected += "| DB_FAILURE ";
  }
  EXPECT_EQ(Answers(manager), expected);
  EXPECT_EQ(manager.SetUserCredentials({}), Tarn::RESULT_NOTIMPL);
}

/// Whatever made the initialiser fail, the manager is closed, leaks no descriptor and stays silent.
void ExpectFailedOpening(const Perenna::PListDict& section, const Tarn::Result_t& result, const Lines& lines) {
  CaptureLog log;
  const std::ptrdiff_t descriptors = OpenDescriptors();
  UserManager manager;
  EXPECT_EQ(manager.InitUserManager(section), result);
  EXPECT_EQ(log.Take(), lines);
  ExpectClosed(manager);
  EXPECT_EQ(log.Take(), Lines{});
  EXPECT_EQ(OpenDescriptors(), descriptors);
}

std::string SingleSpaced(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](unsigned char c) { return std::isspace(c) != 0; }, ' ');
  text.erase(std::unique(text.begin(), text.end(), [](char a, char b) { return a == ' ' && b == ' '; }), text.end());
  return text;
}

} // namespace

TEST(Database, ANewFileReceivesTheSchemaAndOneVersionRow) {
  const TemporaryDirectory place;
  const std::string file = place.File("access.db");
  CaptureLog log;
  ASSERT_EQ(LocalAccessManager::InitUserManager(Configuration(file)), Tarn::RESULT_OK);
  EXPECT_THAT(log.Take(), ElementsAre(NoticeLine("Creating new access database.\n"),
                                      DebugLine("Opened database \"" + file + "\".\n")));
  BareDatabase bare(file);
  std::vector<std::string> statements;
  for (const BareDatabase::Row& row : bare.Query("SELECT sql FROM sqlite_master WHERE sql NOT NULL ORDER BY rowid")) {
    statements.push_back(SingleSpaced(row.at(0)));
  }
  EXPECT_THAT(
      statements,
      ElementsAre("CREATE TABLE users ( user_id TEXT NOT NULL PRIMARY KEY, auth_method TEXT NOT NULL, auth_value TEXT "
                  "NOT NULL, create_date TEXT NOT NULL, create_user TEXT NOT NULL )",
                  "CREATE TABLE groups ( group_id TEXT NOT NULL PRIMARY KEY, group_name TEXT NOT NULL )",
                  "CREATE TABLE groupusers ( group_id TEXT NOT NULL REFERENCES groups(group_id), user_id TEXT NOT NULL "
                  "REFERENCES users(user_id) )",
                  "CREATE TABLE filters ( method TEXT NOT NULL, group_id TEXT NOT NULL, filter TEXT NOT NULL, action "
                  "TEXT NOT NULL )",
                  "CREATE TABLE version_info ( version_string TEXT NOT NULL, major INT NOT NULL, minor INT NOT NULL, "
                  "build INT NOT NULL, options TEXT )"));
  EXPECT_THAT(bare.Query("SELECT *, typeof(major) FROM version_info"),
              ElementsAre(ElementsAre("1.0.0", "1", "0", "0", "{}", "integer")));
}

TEST(Database, AnExistingFileIsOpenedAsItIs) {
  const TemporaryDirectory place;
  for (const std::string schema : {"CREATE TABLE users (name)", ""}) { // a zero-length file is a regular file, too
    const std::string file = place.File("existing" + std::to_string(schema.size()));
    BareDatabase bare(file);
    bare.Run(schema.empty() ? "SELECT * FROM sqlite_master" : schema);
    CaptureLog log;
    {
      UserManager manager;
      ASSERT_EQ(manager.InitUserManager(Dict({{"DatabaseFilename", file}})), Tarn::RESULT_OK);
      EXPECT_EQ(manager.InitUserManager(Dict({{"DatabaseFilename", place.File("other")}})), Tarn::RESULT_OK);
      EXPECT_THAT(log.Take(), ElementsAre(DebugLine("Opened database \"" + file + "\".\n")));
      EXPECT_FALSE(manager.GroupExists("g"));
      EXPECT_THAT(log.Take(), ElementsAre(ErrorLine("Unable to prepare statement SELECT * FROM groups WHERE group_id = "
                                                    "?: no such table: groups\n"),
                                          ErrorLine("No prepared statement for query \"SELECT * FROM groups WHERE "
                                                    "group_id = ?\": PARAM (-5).\n")));
    }
    EXPECT_EQ(bare.Query("SELECT sql FROM sqlite_master").size(), schema.empty() ? 0U : 1U);
    EXPECT_FALSE(std::filesystem::exists(place.File("other")));
  }
}

TEST(Database, AFileThatCannotBeNamedOpenedOrWrittenLeavesTheManagerClosed) {
  const TemporaryDirectory place;
  const auto unable = [](const std::string& file) {
    return Lines{ErrorLine("Unable to open database \"" + file + "\": unable to open database file\n")};
  };
  const std::string nowhere = place.File("no/such/directory.db");
  ExpectFailedOpening({}, Perenna::RESULT_PN_SETUP, {ErrorLine("Database filename is empty.\n")});
  ExpectFailedOpening(Dict({{"DatabaseFilename", ""}}), Perenna::RESULT_PN_SETUP,
                      {ErrorLine("Database filename is empty.\n")});
  ExpectFailedOpening(Dict({{"DatabaseFilename", nowhere}}), Perenna::RESULT_PN_SETUP, unable(nowhere));
  ExpectFailedOpening(Dict({{"DatabaseFilename", place.Path()}}), Perenna::RESULT_PN_SETUP, unable(place.Path()));

  const SmallDisk disk(place.Path(), 16);
  if (!disk.Refusal().empty()) {
    GTEST_SKIP() << disk.Refusal();
  }
  const std::string file = place.File("access.db");
  ExpectFailedOpening(
      Dict({{"DatabaseFilename", file}}), Perenna::RESULT_PN_SETUP,
      {NoticeLine("Creating new access database.\n"), ErrorLine("SQL create error: database or disk is full\n")});
  EXPECT_TRUE(std::filesystem::exists(file)) << "what was written stays, for a person to look at";
}

TEST(Database, EveryAllocationThatFailsWhileOpeningIsReportedAsItsStage) {
  const FailingMemory memory;
  const TemporaryDirectory place;
  const SmallDisk disk(place.Path(), 1024); // a thousand files are created; without it, that takes longer
  const std::string file = place.File("access.db");
  const CaptureLog::Line creating = NoticeLine("Creating new access database.\n");
  const Lines done = {creating, DebugLine("Opened database \"" + file + "\".\n")};
  const Lines no_connection = {ErrorLine("Unable to open database \"" + file + "\": allocation error.\n")};
  const Lines no_schema = {creating, ErrorLine("SQL create error: out of memory\n")};
  const Lines no_function = {creating, ErrorLine("SQL regexp extension: out of memory\n")};
  std::set<Lines> seen;
  bool came_up = true;
  for (int count = 1; came_up; ++count) {
    CaptureLog log;
    const std::ptrdiff_t descriptors = OpenDescriptors();
    auto manager = std::make_unique<UserManager>();
    FailingMemory::FailAt(count);
    const Tarn::Result_t result = manager->InitUserManager(Dict({{"DatabaseFilename", file}}));
    came_up = FailingMemory::Failed();
    FailingMemory::FailAt(0);
    const Lines lines = log.Take();
    seen.insert(lines);
    EXPECT_EQ(result, lines == done            ? Tarn::RESULT_OK // SQLite can do without some of its allocations
                      : lines == no_connection ? Tarn::RESULT_ALLOC
                                               : Perenna::RESULT_PN_SETUP)
        << "allocation " << count;
    if (result.Failed()) {
      ExpectClosed(*manager);
    }
    manager.reset();
    EXPECT_EQ(OpenDescriptors(), descriptors) << "allocation " << count;
    std::filesystem::remove(file);
  }
  EXPECT_EQ(seen, (std::set<Lines>{done, no_connection, no_schema, no_function}));
}

TEST(EntryPoints, HandOutNothingBeforeTheyCreate) {
  auto* const untouched = reinterpret_cast<UserManager*>(&OpenDescriptors);
  UserManager* manager = untouched;
  EXPECT_FALSE(LocalAccessManager::GetUserManager(manager));
  EXPECT_EQ(manager, untouched);
}

TEST(EntryPoints, OnlyTheCreatingCallReportsAFailureAndNoLaterOneTriesAgain) {
  const TemporaryDirectory place;
  CaptureLog log;
  Perenna::PListDict no_section;
  no_section.SetValue("DatabaseFilename", place.File("misplaced.db"));
  EXPECT_EQ(LocalAccessManager::InitUserManager(no_section), Perenna::RESULT_PN_SETUP);
  EXPECT_EQ(log.Take(), Lines{ErrorLine("Database filename is empty.\n")});
  UserManager* manager = nullptr;
  ASSERT_TRUE(LocalAccessManager::GetUserManager(manager));
  EXPECT_EQ(LocalAccessManager::InitUserManager(Configuration(place.File("access.db"))), Tarn::RESULT_OK);
  ExpectClosed(*manager);
  EXPECT_EQ(log.Take(), Lines{});
  EXPECT_TRUE(std::filesystem::is_empty(place.Path()));
}

TEST(EntryPoints, ALaterConfigurationIsIgnored) {
  const TemporaryDirectory place;
  UserManager* first = nullptr;
  UserManager* second = nullptr;
  ASSERT_EQ(LocalAccessManager::InitUserManager(Configuration(place.File("first.db"))), Tarn::RESULT_OK);
  ASSERT_TRUE(LocalAccessManager::GetUserManager(first));
  EXPECT_EQ(LocalAccessManager::InitUserManager(Configuration(place.File("second.db"))), Tarn::RESULT_OK);
  ASSERT_TRUE(LocalAccessManager::GetUserManager(second));
  EXPECT_EQ(first, second);
  EXPECT_FALSE(std::filesystem::exists(place.File("second.db")));
  BareDatabase(place.File("first.db")).Run("INSERT INTO users VALUES('root', 'plain_pw', 'root', '', '')");
  EXPECT_TRUE(second->UserExists("root"));
}

TEST(EntryPoints, CreateOneManagerWhenManyThreadsInitialiseAtOnce) {
  CaptureLog log;
  std::atomic<bool> go{false};
  std::atomic<int> setup_failures{0};
  std::atomic<int> successes{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&] {
      while (!go) {
      }
      const Tarn::Result_t result = LocalAccessManager::InitUserManager({});
      setup_failures += result == Perenna::RESULT_PN_SETUP ? 1 : 0;
      successes += result == Tarn::RESULT_OK ? 1 : 0;
      EXPECT_EQ(LocalAccessManager::InitSelfAccessManager({}), Tarn::RESULT_OK);
    });
  }
  go = true;
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(setup_failures, 1);
  EXPECT_EQ(successes, 7);
  EXPECT_EQ(log.Take(), Lines{ErrorLine("Database filename is empty.\n")});
}
