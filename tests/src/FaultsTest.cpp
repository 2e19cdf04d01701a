// Hostile input and broken machines: the module refuses, says so, and keeps what it has.

#include <clocale>
#include <filesystem>
#include <fstream>
#include <new>

#include "support/AccessDirectory.h"
#include "support/HostileMachine.h"

using namespace Testing;
using LocalAccessManager::UserManager;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::Pair;

namespace {

constexpr std::size_t Mebibyte = 1 << 20;

const std::string Seed = "DELETE FROM users; DELETE FROM groups; DELETE FROM groupusers; DELETE FROM filters;"
                         "INSERT INTO users VALUES('root', 'plain_pw', 'root', 'd', 'root');"
                         "INSERT INTO groups VALUES('g', 'G');"
                         "INSERT INTO groupusers VALUES('g', 'root');"
                         "INSERT INTO filters VALUES('GET', 'g', '/', 'Allow');";

class Faults : public AccessDirectory {
protected:
  void SetUp() override {
    AccessDirectory::SetUp();
    Run(Seed);
  }
};

/// The answers of a manager of its own on a file.
std::string AnswersOn(const std::string& file) {
  UserManager manager;
  EXPECT_EQ(manager.InitUserManager(Dict({{"DatabaseFilename", file}})), Tarn::RESULT_OK);
  return Answers(manager);
}

void CreateSeeded(const std::string& file) {
  {
    UserManager creator;
    ASSERT_EQ(creator.InitUserManager(Dict({{"DatabaseFilename", file}})), Tarn::RESULT_OK);
  }
  BareDatabase(file).Run(Seed);
}

const std::string NothingReadable =
    "no no no no no no | OK | OK | DB_FAILURE | STATE | DB_FAILURE | DB_FAILURE | NOT_FOUND | NOT_FOUND | DB_FAILURE "
    "| NOT_FOUND | NOT_FOUND ";

} // namespace

TEST_F(Faults, AnIdOrUrlThatEndsBeforeItEndsIsNobodysAndNowhere) {
  const auto with_nul = [](const std::string& text) { return text + std::string("\0x", 2); };
  for (const std::string& user_id : {with_nul("root"), std::string("root\0", 5), with_nul("")}) {
    EXPECT_FALSE(Login(user_id, "root"));
    EXPECT_FALSE(May(user_id, Perenna::METH_GET, "/"));
    EXPECT_TRUE(Options(user_id, "/").empty());
  }
  EXPECT_FALSE(May("root", Perenna::METH_GET, with_nul("/")));
  EXPECT_TRUE(Options("root", with_nul("/")).empty());
  EXPECT_EQ(Manager().CreateUser(Dict({{"user_id", with_nul("root")}, {"create_user", "root"}, {"password", "p"}})),
            Tarn::RESULT_FILEEXISTS);
  // What somebody else stored with a NUL is not taken for the text before it.
  AddStoredUser(with_nul("eve"), "plain_pw", "p");
  EXPECT_FALSE(Manager().UserExists("eve"));
  EXPECT_FALSE(Login("eve", "p"));
  BareDatabase bare(File());
  bare.Query("INSERT INTO filters VALUES('PUT', 'g', '/', ?)", {with_nul("Allow")});
  bare.Query("INSERT INTO filters VALUES('GET', 'g', '/', ?)", {with_nul("Deny")});
  bare.Query("INSERT INTO filters VALUES(?, 'g', '/', 'Allow')", {with_nul("POST")});
  EXPECT_FALSE(May("root", Perenna::METH_PUT, "/"));
  EXPECT_FALSE(May("root", Perenna::METH_POST, "/"));
  EXPECT_TRUE(May("root", Perenna::METH_GET, "/"));
  EXPECT_EQ(Log(), Lines{});
}

TEST_F(Faults, LongTextsAreStoredComparedAndMatchedWhole) {
  const std::string user_id(Mebibyte, 'u');
  AddUser(user_id, std::string(Mebibyte, 'p'));
  EXPECT_EQ(Manager().SetUserGroups(user_id, Array({"g"})), Tarn::RESULT_FALSE);
  EXPECT_TRUE(Login(user_id, std::string(Mebibyte, 'p')));
  EXPECT_FALSE(Login(user_id, std::string(Mebibyte - 1, 'p')));
  EXPECT_FALSE(Manager().UserExists(user_id.substr(1)));
  AddFilter("PUT", "g", "^/a+$", "Allow");
  const std::string url = "/" + std::string(Mebibyte, 'a');
  EXPECT_TRUE(May(user_id, Perenna::METH_PUT, url));
  EXPECT_FALSE(May(user_id, Perenna::METH_PUT, url + "b"));
  EXPECT_THAT(Options(user_id, url), ElementsAre("GET", "PUT"));
  EXPECT_EQ(Manager().SetGroupUsers("g", Array({user_id.substr(1)})), Tarn::RESULT_PARAM);
  EXPECT_EQ(Log().back(), ErrorLine("Unknown user \"" + user_id.substr(1) + "\" in users array.\n"));
  EXPECT_EQ(Manager().DeleteUser(user_id), Tarn::RESULT_OK);
}

TEST_F(Faults, BytesThatAreNotUtf8AreKeptAndToldApart) {
  ASSERT_NE(std::setlocale(LC_ALL, "C.UTF-8"), nullptr); // NOLINT(concurrency-mt-unsafe): no thread yet
  const std::vector<std::string> texts = {"\xff",     "\xff\xfe",     "\xc3",        "\xc3\xbc",
                                          "\xc0\x80", "\xed\xa0\x80", "\xef\xbb\xbf"};
  for (const std::string& text : texts) {
    EXPECT_FALSE(Manager().UserExists(text));
    AddUser(text, text);
    EXPECT_EQ(Manager().CreateGroup(Dict({{"group_id", text}, {"group_name", text}})), Tarn::RESULT_PARAM);
    AddFilter(text, "g", "^/" + text + "$", "Allow");
  }
  for (const std::string& text : texts) {
    EXPECT_TRUE(Login(text, text));
    EXPECT_FALSE(Login(text, text + text));
    static_cast<void>(May("root", Perenna::METH_GET, "/" + text)); // whether it matches is the C library's affair
  }
  std::vector<std::string> stored;
  for (const BareDatabase::Row& row : Query("SELECT user_id FROM users WHERE user_id <> 'root' ORDER BY rowid")) {
    stored.push_back(row.at(0));
  }
  EXPECT_EQ(stored, texts);
}

TEST_F(Faults, PatternsThatDoNotCompileOrWouldExhaustTheMachineMatchNothing) {
  const std::string deep = std::string(300, '(') + "a" + std::string(300, ')');
  for (const std::string& pattern :
       {std::string("("), std::string("["), std::string("a{2,1}"), std::string("a\\"), std::string("[[:nonsense:]]"),
        deep, std::string("((a{200}){200}){200}"), std::string(Mebibyte, 'a')}) {
    SCOPED_TRACE(pattern.substr(0, 40));
    Run(Seed);
    AddFilter("GET", "g", pattern, "Deny");
    AddFilter("PUT", "g", pattern, "Allow");
    EXPECT_TRUE(May("root", Perenna::METH_GET, "/" + pattern));
    EXPECT_FALSE(May("root", Perenna::METH_PUT, "/" + pattern));
    EXPECT_THAT(Options("root", "/" + pattern), ElementsAre("GET"));
    const Lines lines = Log();
    EXPECT_GE(lines.size(), 4U);
    EXPECT_THAT(lines,
                Each(Pair(Tarn::LOG_ERROR, HasSubstr("regex init failed for expression \"" + pattern + "\": "))));
  }
}

TEST_F(Faults, AMissingTableFailsWhatNeedsItAndNothingElse) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"version_info",
       "yes yes yes no yes yes | OK 1| OK 1| OK 1| FALSE | FALSE | FALSE | FALSE | FALSE | FALSE | OK | OK "},
      {"users",
       "no yes no no yes yes | OK | OK 1| OK 1| STATE | FALSE | FALSE | PARAM | NOT_FOUND | FALSE | OK | NOT_FOUND "},
      {"groups", "yes no yes no yes yes | OK 1| OK | OK 1| FALSE | DB_FAILURE | FALSE | NOT_FOUND | PARAM | FALSE "
                 "| NOT_FOUND | OK "},
      {"groupusers", "yes yes yes no no no | OK 1| OK 1| OK 1| FALSE | FALSE | FALSE | DB_FAILURE | DB_FAILURE | FALSE "
                     "| OK | OK "},
      {"filters", "yes yes yes no no no | OK 1| OK 1| DB_FAILURE | FALSE | FALSE | DB_FAILURE | FALSE | FALSE "
                  "| DB_FAILURE | OK | OK "}};
  for (const auto& [table, expected] : cases) {
    Run(Seed + "ALTER TABLE " + table + " RENAME TO hidden");
    EXPECT_EQ(Answers(Manager()), expected) << table;
    for (const CaptureLog::Line& line : Log()) {
      EXPECT_TRUE(line.first == Tarn::LOG_DEBUG || line.second.find(table) != std::string::npos ||
                  line.second == "Non-existant create_user.\n")
          << line.second;
    }
    Run("ALTER TABLE hidden RENAME TO " + table);
  }
}

TEST_F(Faults, NullsInAForeignSchemaDecideNothing) {
  Run("DROP TABLE filters; CREATE TABLE filters(method, group_id, filter, action);"
      "INSERT INTO filters VALUES('GET', 'g', NULL, 'Allow'), ('PUT', 'g', '/', NULL), (NULL, 'g', '/', 'Allow')");
  EXPECT_FALSE(May("root", Perenna::METH_GET, "/"));
  EXPECT_FALSE(May("root", Perenna::METH_PUT, "/"));
  EXPECT_EQ(Log(), Lines{});
}

TEST(FaultyFiles, AFileThatIsNoDatabaseIsOpenedAndAnswersNothing) {
  const TemporaryDirectory place;
  const std::string text = place.File("text");
  std::ofstream(text) << std::string(5000, 'x');
  const std::string torn = place.File("torn");
  CaptureLog log;
  CreateSeeded(torn);
  std::fstream(torn, std::ios::in | std::ios::out | std::ios::binary).seekp(100) << std::string(40000, '\x7f');
  log.Take();
  for (const auto& [file, explanation] : {std::pair(text, "file is not a database"), std::pair(torn, "malformed")}) {
    EXPECT_EQ(AnswersOn(file), NothingReadable) << file;
    const Lines lines = log.Take();
    EXPECT_EQ(lines.front(), DebugLine("Opened database \"" + file + "\".\n"));
    EXPECT_THAT(lines, ::testing::Contains(Pair(Tarn::LOG_ERROR, HasSubstr(explanation)))) << file;
  }
  EXPECT_EQ(std::filesystem::file_size(text), 5000U);
}

TEST(FaultyFiles, AReadOnlyFileIsAnsweredFromAndNotWritten) {
  const TemporaryDirectory place;
  SmallDisk disk(place.Path(), 512);
  if (!disk.Refusal().empty()) {
    GTEST_SKIP() << disk.Refusal();
  }
  const std::string file = place.File("access.db");
  CaptureLog log;
  CreateSeeded(file);
  ASSERT_TRUE(disk.MakeReadOnly());
  for (int run = 0; run < 2; ++run) {
    log.Take();
    EXPECT_EQ(AnswersOn(file), "yes yes yes no yes yes | OK 1| OK 1| OK 1| DB_FAILURE | DB_FAILURE | DB_FAILURE "
                               "| DB_FAILURE | DB_FAILURE | DB_FAILURE | OK | OK ");
    int refused = 0;
    for (const CaptureLog::Line& line : log.Take()) {
      refused += line.second.find("attempt to write a readonly database") != std::string::npos ? 1 : 0;
    }
    EXPECT_EQ(refused, 12) << "each statement that writes";
  }
}

TEST(FaultyFiles, AFullDiskRefusesTheWriteAndLosesNothing) {
  const TemporaryDirectory place;
  const SmallDisk disk(place.Path(), 512);
  if (!disk.Refusal().empty()) {
    GTEST_SKIP() << disk.Refusal();
  }
  const std::string file = place.File("access.db");
  CaptureLog log;
  CreateSeeded(file);
  std::ofstream(place.File("ballast")) << std::string(128 * 1024, 'b');
  UserManager manager;
  ASSERT_EQ(manager.InitUserManager(Dict({{"DatabaseFilename", file}})), Tarn::RESULT_OK);
  const auto create = [&](int number) {
    const std::string user_id = std::string(16 * 1024, 'u') + std::to_string(number);
    const Tarn::Result_t result =
        manager.CreateUser(Dict({{"user_id", user_id}, {"create_user", "root"}, {"password", "p"}}));
    EXPECT_EQ(manager.UserExists(user_id), !result.Failed());
    return result;
  };
  log.Take();
  int created = 0;
  while (create(created) == Tarn::RESULT_FALSE) {
    ASSERT_LT(++created, 100) << "the disk does not fill up";
  }
  EXPECT_GT(created, 1);
  const Lines full = {
      ErrorLine("Error stepping statement INSERT INTO users VALUES(?,?,?,?,?): database or disk is full\n")};
  EXPECT_EQ(log.Take(), full);
  EXPECT_EQ(create(created), Perenna::RESULT_DB_FAILURE) << "again, with nothing left over from the first try";
  EXPECT_TRUE(manager.TestRequestForUser(Perenna::HTTPRequest(Perenna::METH_GET, "/"), "root"));
  EXPECT_THAT(BareDatabase(file).Query("PRAGMA integrity_check"), ElementsAre(ElementsAre("ok")));
  std::filesystem::remove(place.File("ballast"));
  EXPECT_EQ(create(created), Tarn::RESULT_FALSE);
  EXPECT_EQ(BareDatabase(file).Query("SELECT user_id FROM users").size(), static_cast<std::size_t>(created) + 2);
}

namespace {

class FailingAllocations : public AccessDirectory {
private:
  const FailingMemory m_Memory; // before the file is opened
};

} // namespace

TEST_F(FailingAllocations, NeverTurnADenyIntoAnAllowNorOneUserIntoAnother) {
  Run(Seed +
      "INSERT INTO filters VALUES('GET', 'g', '^/x', 'Deny'), ('PUT', 'g', '/', 'Deny'), ('PUT', 'g', '', 'Allow')");
  for (int i = 0; i < 20; ++i) {
    AddFilter("GET", "g", "^/x" + std::to_string(i), i % 2 == 0 ? "Allow" : "Deny");
  }
  const auto failing = [](const std::string& what, bool healthy, auto question) {
    int answered = 0;
    bool came_up = true;
    for (int count = 1; came_up; ++count) {
      bool answer = false;
      FailingMemory::FailAt(count);
      try {
        answer = question();
      } catch (const std::bad_alloc&) { // as good as a no
      }
      came_up = FailingMemory::Failed();
      FailingMemory::FailAt(0);
      ASSERT_TRUE(healthy || !answer) << what << ", allocation " << count;
      ASSERT_TRUE(came_up || answer == healthy) << what << ", no allocation failed";
      answered = count;
    }
    EXPECT_GT(answered, 10) << what << ": allocations were made";
  };
  failing("allowed", true, [&] { return May("root", Perenna::METH_GET, "/"); });
  failing("denied", false, [&] { return May("root", Perenna::METH_GET, "/x1"); });
  failing("denied alone", false, [&] { return May("root", Perenna::METH_PUT, "/"); });
  failing("right password", true, [&] { return Login("root", "root"); });
  failing("wrong password", false, [&] { return Login("root", "wrong"); });
  failing("unknown user", false, [&] { return Login("nobody", ""); });
  failing("existing user", true, [&] { return Manager().UserExists("root"); });
}
