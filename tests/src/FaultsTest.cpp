// Hostile input and broken machines: the module refuses, says so, and keeps what it has.

#include <algorithm>
#include <clocale>
#include <filesystem>
#include <fstream>
#include <functional>
#include <new>

#include <gmock/gmock.h>

#include "support/AccessDirectory.h"
#include "support/HostileMachine.h"

using namespace Testing;
using namespace std::string_literals;
using LocalAccessManager::UserManager;
using ::testing::HasSubstr;

namespace {

constexpr std::size_t Mebibyte = 1 << 20;

const std::string Seed = "DELETE FROM users; DELETE FROM groups; DELETE FROM groupusers; DELETE FROM filters;"
                         "INSERT INTO users VALUES('root', 'plain_pw', 'root', 'a date', 'root');"
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

/// Files that the fixture cannot make, each opened by a manager of its own.
class FaultyFiles : public ::testing::Test {
protected:
  static void Open(UserManager& manager, const std::string& file) {
    ASSERT_EQ(manager.InitUserManager(Dict({{"DatabaseFilename", file}})), Tarn::RESULT_OK);
  }
  static std::string AnswersOn(const std::string& file) {
    UserManager manager;
    Open(manager, file);
    return Answers(manager);
  }
  static void CreateSeeded(const std::string& file) {
    UserManager creator;
    Open(creator, file);
    BareDatabase(file).Run(Seed);
  }

  const TemporaryDirectory place;
  const std::string file = place.File("access.db");
  CaptureLog log;
};

} // namespace

TEST_F(Faults, AnIdOrUrlThatEndsBeforeItEndsIsNobodysAndNowhere) {
  for (const std::string& user_id : {"root\0x"s, "root\0"s, "\0x"s}) {
    EXPECT_FALSE(Login(user_id, "root"));
    EXPECT_FALSE(May(user_id, "GET /"));
    EXPECT_EQ(Options(user_id, "/"), "no");
  }
  EXPECT_FALSE(May("root", "GET /\0x"s));
  EXPECT_EQ(Options("root", "/\0x"s), "no");
  EXPECT_EQ(Manager().CreateUser(Fields("user_id=root\0x create_user=root password=p"s)), Tarn::RESULT_FILEEXISTS);
  // What somebody else stored with a NUL is not taken for the text before it.
  AddStoredUser("eve\0x"s, "plain_pw", "p");
  EXPECT_FALSE(Manager().UserExists("eve"));
  EXPECT_FALSE(Login("eve", "p"));
  BareDatabase bare(File());
  bare.Query("INSERT INTO filters VALUES('PUT', 'g', '/', ?), ('GET', 'g', '/', ?), (?, 'g', '/', 'Allow')",
             {"Allow\0x"s, "Deny\0x"s, "POST\0x"s});
  EXPECT_FALSE(May("root", "PUT /"));
  EXPECT_FALSE(May("root", "POST /"));
  EXPECT_TRUE(May("root", "GET /"));
  // Actions that are blobs count as their bytes, for a request as in the list; methods do not.
  Run(Seed);
  Run("INSERT INTO filters VALUES('PUT', 'g', '/', x'416c6c6f77'), ('GET', 'g', '/', x'44656e79'),"
      "(x'504f5354', 'g', '/', 'Allow')");
  EXPECT_TRUE(May("root", "PUT /"));
  EXPECT_FALSE(May("root", "GET /") || May("root", "POST /"));
  EXPECT_EQ(Options("root", "/"), "yes PUT");
  // Nor does SQL NULL in a foreign schema decide anything.
  bare.Run("DROP TABLE filters; CREATE TABLE filters(method, group_id, filter, action);"
           "INSERT INTO filters VALUES('GET', 'g', NULL, 'Allow'), ('PUT', 'g', '/', NULL), (NULL, 'g', '/', 'Allow')");
  EXPECT_FALSE(May("root", "GET /") || May("root", "PUT /"));
  EXPECT_EQ(Options("root", "/"), "yes");
  EXPECT_EQ(Log(), "");
}

TEST_F(Faults, BytesThatAreNotUtf8AreKeptToldApartAndMatchedInEveryLocale) {
  AddFilter("GET g ^/f/.+[.]conf$ Deny");
  ASSERT_NE(std::setlocale(LC_ALL, "C.UTF-8"), nullptr); // NOLINT(concurrency-mt-unsafe): no thread yet
  std::string stored = "root";
  for (const std::string text : {"\xff", "\xff\xfe", "\xc3", "\xc3\xbc", "\xc0\x80", "\xed\xa0\x80", "\xef\xbb\xbf"}) {
    EXPECT_FALSE(Manager().UserExists(text));
    AddUser(text, text);
    EXPECT_TRUE(Login(text, text));
    EXPECT_FALSE(Login(text, text + text));
    EXPECT_EQ(Manager().CreateGroup(Dict({{"group_id", text}, {"group_name", text}})), Tarn::RESULT_PARAM);
    AddFilter("PUT g ^/" + text + "$ Allow");
    EXPECT_TRUE(May("root", "PUT /" + text));
    EXPECT_FALSE(May("root", "GET /f/" + text + ".conf")) << "a dot matches any byte";
    stored += "; " + text;
  }
  EXPECT_EQ(Rows("SELECT user_id FROM users ORDER BY rowid"), stored);
}

TEST_F(Faults, APatternThatDoesNotCompileMatchesNothingAndOneThatIsTooBigPutsTheDecisionInDoubt) {
  const std::string too_big = "((a{200}){200}){200}";
  // clang-format off
  for (const std::string& pattern : {"("s, "["s, "a{2,1}"s, "a\\"s, "[[:nonsense:]]"s,
                                     std::string(300, '(') + "a" + std::string(300, ')'), too_big}) {
    // clang-format on
    SCOPED_TRACE(pattern.substr(0, 40));
    const bool in_doubt = pattern.size() > 15;
    Run(Seed);
    AddFilter("GET g " + pattern + " Deny");
    AddFilter("PUT g " + pattern + " Allow");
    EXPECT_EQ(May("root", "GET /" + pattern), !in_doubt);
    EXPECT_FALSE(May("root", "PUT /" + pattern));
    EXPECT_EQ(Options("root", "/" + pattern), in_doubt ? "no" : "yes GET");
    for (const std::string& line : Split(Log(), '\n')) {
      EXPECT_TRUE(line.empty() || line.find("E:regex init failed for expression \"" + pattern + "\": ") == 0) << line;
    }
  }
  // Wherever the doubt comes up among rows that grant; and it does not outlast its decision.
  std::vector<std::string> filters = {"GET g " + too_big + " Deny", "GET g / Allow", "GET g ^/elsewhere Deny"};
  do {
    Run("DELETE FROM filters");
    std::for_each(filters.begin(), filters.end(), [this](const std::string& filter) { AddFilter(filter); });
    EXPECT_FALSE(May("root", "GET /"));
    EXPECT_EQ(Options("root", "/"), "no");
    EXPECT_FALSE(May("root", "PUT /"));
    AddFilter("PUT g / Allow");
    EXPECT_TRUE(May("root", "PUT /"));
  } while (std::next_permutation(filters.begin(), filters.end()));
}

TEST_F(FaultyFiles, WhatIsNoDatabaseIsOpenedAndAnswersNothing) {
  const std::string text = place.File("text");
  std::ofstream(text) << std::string(5000, 'x');
  CreateSeeded(file);
  std::fstream(file, std::ios::in | std::ios::out | std::ios::binary).seekp(100) << std::string(40000, '\x7f');
  for (const auto& [name, explanation] : {std::pair(text, "file is not a database"), std::pair(file, "malformed")}) {
    log.Take();
    EXPECT_EQ(AnswersOn(name), "no no no no no no | OK | OK | DB_FAILURE | STATE | DB_FAILURE | DB_FAILURE | NOT_FOUND "
                               "| NOT_FOUND | DB_FAILURE | NOT_FOUND | NOT_FOUND ");
    EXPECT_THAT(TakeText(log), HasSubstr(explanation));
  }
  EXPECT_EQ(std::filesystem::file_size(text), 5000U);
}

TEST_F(FaultyFiles, AReadOnlyFileIsAnsweredFromAndNotWritten) {
  SmallDisk disk(place.Path(), 512);
  if (!disk.Refusal().empty()) {
    GTEST_SKIP() << disk.Refusal();
  }
  CreateSeeded(file);
  ASSERT_TRUE(disk.MakeReadOnly());
  EXPECT_EQ(AnswersOn(file), "yes yes yes no yes yes | OK 1| OK 1| OK 1| DB_FAILURE | DB_FAILURE | DB_FAILURE "
                             "| DB_FAILURE | DB_FAILURE | DB_FAILURE | OK | OK ");
  EXPECT_THAT(TakeText(log), HasSubstr("DELETE FROM users WHERE user_id = ?: attempt to write a readonly database\n"));
}

TEST_F(FaultyFiles, AFullDiskRefusesTheWriteAndLosesNothing) {
  const SmallDisk disk(place.Path(), 512);
  if (!disk.Refusal().empty()) {
    GTEST_SKIP() << disk.Refusal();
  }
  CreateSeeded(file);
  UserManager manager;
  Open(manager, file);
  log.Take();
  std::size_t created = 0;
  for (bool full = false; !full; created += full ? 0 : 1) {
    ASSERT_LT(created, 100U) << "the disk does not fill up";
    const std::string user_id = std::string(Mebibyte / 64, 'u') + std::to_string(created);
    full = manager.CreateUser(Fields("user_id=" + user_id + " create_user=root password=p")).Failed();
    EXPECT_EQ(manager.UserExists(user_id), !full);
  }
  EXPECT_EQ(TakeText(log),
            "E:Error stepping statement INSERT INTO users VALUES(?,?,?,?,?): database or disk is full\n");
  EXPECT_TRUE(manager.TestRequestForUser(Perenna::HTTPRequest(Perenna::METH_GET, "/"), "root"));
  EXPECT_EQ(BareDatabase(file).Query("PRAGMA integrity_check").at(0).at(0), "ok");
  EXPECT_EQ(BareDatabase(file).Query("SELECT 1 FROM users").size(), created + 1);
}

namespace {

class FailingAllocations : public FaultyFiles {
private:
  const FailingMemory m_Memory; // before a file is opened
};

} // namespace

TEST_F(FailingAllocations, NeverTurnADenyIntoAnAllowNorOneUserIntoAnother) {
  if (!FailingMemory::Available()) {
    GTEST_SKIP() << "a sanitizer brings its own allocations";
  }
  CreateSeeded(file);
  const std::string utf16 = place.File("utf16.db"); // its texts are converted, which allocates more
  for (const std::string& name : {file, utf16}) {
    BareDatabase bare(name);
    if (name == utf16) {
      bare.Run("PRAGMA encoding = 'UTF-16'");
      for (const BareDatabase::Row& row :
           BareDatabase(file).Query("SELECT sql FROM sqlite_master WHERE sql NOT NULL")) {
        bare.Run(row.at(0));
      }
    }
    bare.Run(Seed);
    // Without anchors: what fails while the C library duplicates a node for one, it frees twice.
    bare.Run("INSERT INTO filters VALUES('GET', 'g', 'x', 'Allow'), ('GET', 'g', 'x', 'other'),"
             "('GET', 'g', '[/][x][y]*[y]*[y]*', 'Deny'), ('PUT', 'g', '/', 'Deny'), ('PUT', 'g', '/', 'Allow')");
    UserManager manager;
    Open(manager, name);
    const auto expect = [&name](bool healthy, const std::string& what, const std::function<bool()>& question) {
      bool came_up = true;
      int count = 0;
      for (; came_up; ++count) {
        bool answer = false;
        FailingMemory::FailAt(count + 1);
        try {
          answer = question();
        } catch (const std::bad_alloc&) { // as good as a no
        }
        FailingMemory::FailAt(0);
        came_up = FailingMemory::Failed();
        ASSERT_TRUE(healthy || !answer) << what << ", allocation " << count + 1 << ", " << name;
        ASSERT_TRUE(came_up || answer == healthy) << what << ", no allocation failed, " << name;
      }
      EXPECT_GT(count, 50) << what;
    };
    const Perenna::HTTPRequest get(Perenna::METH_GET, "/");
    const Perenna::HTTPRequest denied(Perenna::METH_GET, "/x");
    const Perenna::HTTPRequest never_allowed(Perenna::METH_PUT, "/");
    expect(true, "allowed", [&] { return manager.TestRequestForUser(get, "root"); });
    expect(false, "denied", [&] { return manager.TestRequestForUser(denied, "root"); });
    expect(false, "never allowed", [&] { return manager.TestRequestForUser(never_allowed, "root"); });
    expect(false, "listed", [&] {
      Perenna::PListArray methods;
      return manager.GetOptionsMethods(denied, "root", methods) && !methods.empty();
    });
    expect(true, "right password", [&] { return manager.TestUserIdAndPassword(get, "root", "root"); });
    expect(false, "wrong password", [&] { return manager.TestUserIdAndPassword(get, "root", ""); });
    expect(false, "unknown user", [&] { return manager.TestUserIdAndPassword(get, "nobody", ""); });
  }
}
