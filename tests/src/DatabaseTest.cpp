// Entry points, the singleton and the database file.

#include <algorithm>
#include <array>
#include <filesystem>
#include <memory>
#include <regex>
#include <set>

#include "support/AccessDirectory.h"
#include "support/HostileMachine.h"

using namespace Testing;
using LocalAccessManager::GetUserManager;
using LocalAccessManager::InitUserManager;
using LocalAccessManager::UserManager;

namespace {

const std::string Creating = "N:Creating new access database.\n";
const std::string Nameless = "E:Database filename is empty.\n";

Perenna::PListDict Section(const std::string& file) {
  return Dict({{"DatabaseFilename", file}});
}

std::ptrdiff_t OpenDescriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator());
}

void ExpectClosed(UserManager& manager) {
  std::string expected = "no no no no no no ";
  for (int operation = 0; operation < 11; ++operation) {
    expected += "| DB_FAILURE ";
  }
  EXPECT_EQ(Answers(manager), expected);
}

void ExpectFailedOpening(const Perenna::PListDict& section, const std::string& lines) {
  CaptureLog log;
  const std::ptrdiff_t descriptors = OpenDescriptors();
  UserManager manager;
  EXPECT_EQ(manager.InitUserManager(section), Perenna::RESULT_PN_SETUP);
  EXPECT_EQ(TakeText(log), lines);
  ExpectClosed(manager);
  EXPECT_EQ(TakeText(log), "");
  EXPECT_EQ(OpenDescriptors(), descriptors);
}

} // namespace

TEST(Database, ANewFileReceivesTheSchemaAndOneVersionRow) {
  const TemporaryDirectory place;
  CaptureLog log;
  ASSERT_EQ(InitUserManager(Configuration(place.File("new.db"))), Tarn::RESULT_OK);
  EXPECT_EQ(TakeText(log), Creating + "D:Opened database \"" + place.File("new.db") + "\".\n");
  BareDatabase bare(place.File("new.db"));
  std::string schema;
  for (const BareDatabase::Row& row : bare.Query("SELECT sql FROM sqlite_master WHERE sql NOT NULL ORDER BY rowid")) {
    schema += std::regex_replace(row.at(0), std::regex("\\s+"), " ") + "\n";
  }
  EXPECT_EQ(schema, R"(CREATE TABLE users ( user_id TEXT NOT NULL PRIMARY KEY, auth_method TEXT NOT NULL, )"
                    R"(auth_value TEXT NOT NULL, create_date TEXT NOT NULL, create_user TEXT NOT NULL )
CREATE TABLE groups ( group_id TEXT NOT NULL PRIMARY KEY, group_name TEXT NOT NULL )
CREATE TABLE groupusers ( group_id TEXT NOT NULL REFERENCES groups(group_id), )"
                    R"(user_id TEXT NOT NULL REFERENCES users(user_id) )
CREATE TABLE filters ( method TEXT NOT NULL, group_id TEXT NOT NULL, filter TEXT NOT NULL, action TEXT NOT NULL )
CREATE TABLE version_info ( version_string TEXT NOT NULL, major INT NOT NULL, minor INT NOT NULL, )"
                    R"(build INT NOT NULL, options TEXT )
)");
  EXPECT_EQ(bare.Query("SELECT * FROM version_info"), (std::vector<BareDatabase::Row>{{"1.0.0", "1", "0", "0", "{}"}}));
}

TEST(Names, AreWhatHostsWrite) {
  using namespace LocalAccessManager::Strings; // NOLINT(google-build-using-namespace): its names are what is tested
  EXPECT_EQ(AuthRealm + ' ' + PathFilterBypass + ' ' + AnonymousUserId + ' ' + SelfCallbackId + ' ' + filters + ' ' +
                path + ' ' + request_url,
            "AuthRealm PathFilterBypass AnonymousUserId x-pn-SelfCallbackId filters path request_url");
}

TEST(Database, AnExistingFileIsOpenedAsItIsAndOnlyOnce) {
  const TemporaryDirectory place;
  const std::string file = place.File("empty");
  BareDatabase bare(file);
  bare.Run("SELECT 1 FROM sqlite_master"); // of no length
  CaptureLog log;
  UserManager manager;
  ASSERT_EQ(manager.InitUserManager(Section(file)), Tarn::RESULT_OK);
  EXPECT_EQ(manager.InitUserManager(Section(place.File("other"))), Tarn::RESULT_OK);
  EXPECT_EQ(TakeText(log), "D:Opened database \"" + file + "\".\n");
  EXPECT_TRUE(bare.Query("SELECT * FROM sqlite_master").empty());
  EXPECT_FALSE(std::filesystem::exists(place.File("other")));
}

TEST(Database, AFileThatCannotBeNamedOpenedOrWrittenLeavesTheManagerClosed) {
  const TemporaryDirectory place;
  ExpectFailedOpening({}, Nameless);
  ExpectFailedOpening(Section(""), Nameless);
  ExpectFailedOpening(Section(place.File("new.db") + std::string("\0x", 2)), Nameless);
  for (const std::string& file : {place.File("no/such/directory.db"), place.Path()}) {
    ExpectFailedOpening(Section(file), "E:Unable to open database \"" + file + "\": unable to open database file\n");
  }
  const SmallDisk disk(place.Path(), 16);
  if (!disk.Refusal().empty()) {
    GTEST_SKIP() << disk.Refusal();
  }
  ExpectFailedOpening(Section(place.File("new.db")), Creating + "E:SQL create error: database or disk is full\n");
  EXPECT_TRUE(std::filesystem::exists(place.File("new.db"))) << "what was written stays, for a person to look at";
}

TEST(Database, EveryAllocationThatFailsWhileOpeningIsReportedAsItsStageOrThrown) {
  if (!FailingMemory::Available()) {
    GTEST_SKIP() << "a sanitizer brings its own allocations";
  }
  const FailingMemory memory;
  const TemporaryDirectory place;
  const SmallDisk disk(place.Path(), 1024); // a thousand files are created; without it, that takes longer
  const std::string file = place.File("new.db");
  const std::string done = Creating + "D:Opened database \"" + file + "\".\n";
  const std::string no_connection = "E:Unable to open database \"" + file + "\": allocation error.\n";
  const Perenna::PListDict section = Section(file);
  std::set<std::string> seen;
  for (int count = 1; count == 1 || FailingMemory::Failed(); ++count) {
    SCOPED_TRACE(count);
    CaptureLog log;
    const std::ptrdiff_t descriptors = OpenDescriptors();
    auto manager = std::make_unique<UserManager>();
    Tarn::Result_t result = Tarn::RESULT_STATE;
    FailingMemory::FailAt(count);
    try {
      result = manager->InitUserManager(section);
    } catch (const std::bad_alloc&) { // not SQLite's
    }
    FailingMemory::FailAt(0);
    if (result != Tarn::RESULT_STATE) {
      const std::string lines = TakeText(log);
      seen.insert(lines);
      EXPECT_EQ(result, lines == done            ? Tarn::RESULT_OK // SQLite can do without some of its allocations
                        : lines == no_connection ? Tarn::RESULT_ALLOC
                                                 : Perenna::RESULT_PN_SETUP);
    }
    if (result == Tarn::RESULT_ALLOC || result == Perenna::RESULT_PN_SETUP) {
      ExpectClosed(*manager);
    }
    manager.reset();
    EXPECT_EQ(OpenDescriptors(), descriptors);
    std::filesystem::remove(file);
  }
  EXPECT_EQ(seen, (std::set<std::string>{done, no_connection, Creating + "E:SQL create error: out of memory\n",
                                         Creating + "E:SQL regexp extension: out of memory\n"}));
}

TEST(EntryPoints, OnlyTheCreatingCallReportsAFailureAndNoLaterOneTriesAgain) {
  const TemporaryDirectory place;
  CaptureLog log;
  UserManager elsewhere;
  UserManager* manager = &elsewhere;
  EXPECT_FALSE(GetUserManager(manager));
  EXPECT_EQ(manager, &elsewhere);
  EXPECT_EQ(InitUserManager(Section(place.File("misplaced.db"))), Perenna::RESULT_PN_SETUP);
  EXPECT_EQ(TakeText(log), Nameless);
  ASSERT_TRUE(GetUserManager(manager));
  EXPECT_EQ(InitUserManager(Configuration(place.File("new.db"))), Tarn::RESULT_OK);
  ExpectClosed(*manager);
  EXPECT_EQ(TakeText(log), "");
  EXPECT_TRUE(std::filesystem::is_empty(place.Path()));
}

TEST(EntryPoints, CreateOneOfEachHoweverManyThreadsAskAtOnce) {
  // While the manager is being initialised, other threads ask for the key store: they wait for the same lock.
  struct AskingLog : CaptureLog {
    void VLog(Tarn::LogType_t, const char*, std::va_list) override {
      for (auto& store : stores) {
        waited += rivals.Wait([&store] {
          EXPECT_EQ(LocalAccessManager::InitSelfAccessManager({}), Tarn::RESULT_OK);
          EXPECT_TRUE(LocalAccessManager::GetSelfAccessManager(store));
        })
                      ? 1
                      : 0;
      }
      EXPECT_FALSE(rivals.Wait([] { EXPECT_EQ(InitUserManager({}), Tarn::RESULT_OK); }));
    }
    std::array<LocalAccessManager::SelfAccessManager*, 4> stores{};
    int waited = 0;
    Rivals rivals;
  } log;
  EXPECT_EQ(InitUserManager({}), Perenna::RESULT_PN_SETUP);
  log.rivals = {};
  EXPECT_EQ(log.waited, 4);
  EXPECT_EQ(std::count(log.stores.begin(), log.stores.end(), log.stores.front()), 4);
}
