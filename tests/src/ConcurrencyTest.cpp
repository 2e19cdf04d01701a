// Eight threads mix every operation; what must hold meanwhile and afterwards.

#include <atomic>
#include <chrono>
#include <random>
#include <set>
#include <thread>

#include "support/AccessDirectory.h"

using namespace Testing;
using LocalAccessManager::SelfAccessManager;

namespace {

class Concurrency : public AccessDirectory {
protected:
  /// The arrays under `key` of all entries of a listing, by the entry's id.
  std::map<std::string, std::vector<std::string>>
  Members(Tarn::Result_t (UserManager::*list)(Perenna::PagedResults::ResultState&, Perenna::PListDict&),
          const std::string& id_key, const std::string& key) {
    Perenna::PagedResults::ResultState page(Perenna::PagedResults::RS_MAXROWS);
    Perenna::PListDict document;
    EXPECT_EQ((Manager().*list)(page, document), Tarn::RESULT_OK);
    Perenna::PListArray* results = nullptr;
    std::map<std::string, std::vector<std::string>> members;
    if (document.GetArray("results", results)) {
      for (const Perenna::PListItem* item : *results) {
        Perenna::PListArray* ids = nullptr;
        const auto& entry = dynamic_cast<const Perenna::PListDict&>(*item);
        EXPECT_TRUE(entry.GetArray(key, ids));
        members[entry.GetData(id_key).GetValue()] = Texts(*ids);
      }
    }
    return members;
  }
};

bool OneOf(const Tarn::Result_t& result, const std::vector<Tarn::Result_t>& expected) {
  return std::find(expected.begin(), expected.end(), result) != expected.end();
}

} // namespace

TEST_F(Concurrency, OperationsOfEightThreadsNeverMixTheirStatements) {
  constexpr int Threads = 8;
  constexpr std::chrono::seconds Duration{3};
  ASSERT_EQ(LocalAccessManager::InitSelfAccessManager({}), Tarn::RESULT_OK);
  SelfAccessManager* store = nullptr;
  ASSERT_TRUE(LocalAccessManager::GetSelfAccessManager(store));
  AddUser("steady", "right");
  AddUser("mover");
  for (const std::string id : {"a", "b", "c", "d", "moved"}) {
    AddGroup(id, {"mover"});
  }
  AddGroup("keep", {"steady"});
  AddFilter("GET", "keep", "^/steady", "Allow");
  ASSERT_EQ(Manager().SetUserGroups("mover", Array({"a", "b"})), Tarn::RESULT_FALSE);
  const std::vector<std::vector<std::string>> halves = {{"a", "b"}, {"c", "d"}};

  const auto end = std::chrono::steady_clock::now() + Duration;
  std::atomic<int> rounds{0};
  std::atomic<int> keys_issued{0};
  std::atomic<int> keys_resolved{0};
  const auto work = [&](unsigned seed) {
    std::minstd_rand random(seed);
    const auto pick = [&](unsigned count) { return random() % count; };
    while (std::chrono::steady_clock::now() < end && !HasFailure()) {
      ++rounds;
      const std::string number = std::to_string(pick(4));
      const std::string user_id = "user" + number;
      const Perenna::PListDict filter =
          Dict({{"method", "GET"}, {"group_id", "group" + number}, {"filter", "^/x"}, {"action", "Deny"}});
      switch (pick(12)) {
      case 0:
        EXPECT_TRUE(
            OneOf(Manager().CreateUser(Dict({{"user_id", user_id}, {"create_user", "root"}, {"password", "p"}})),
                  {Tarn::RESULT_FALSE, Tarn::RESULT_FILEEXISTS, Perenna::RESULT_DB_FAILURE}));
        break;
      case 1:
        EXPECT_TRUE(OneOf(Manager().DeleteUser(user_id), {Tarn::RESULT_OK, Tarn::RESULT_NOT_FOUND}));
        break;
      case 2:
        EXPECT_TRUE(OneOf(Manager().CreateGroup(Dict({{"group_id", "group" + number}, {"group_name", "n"}})),
                          {Tarn::RESULT_FALSE, Tarn::RESULT_FILEEXISTS, Perenna::RESULT_DB_FAILURE}));
        break;
      case 3:
        EXPECT_TRUE(OneOf(Manager().DeleteGroup("group" + number), {Tarn::RESULT_OK, Tarn::RESULT_NOT_FOUND}));
        break;
      case 4:
        EXPECT_TRUE(OneOf(Manager().SetGroupUsers("group" + number, Array({"steady", user_id})),
                          {Tarn::RESULT_FALSE, Tarn::RESULT_NOT_FOUND, Tarn::RESULT_PARAM}));
        break;
      case 5:
        EXPECT_TRUE(OneOf(Manager().SetUserGroups(user_id, Array({"moved", "group" + number})),
                          {Tarn::RESULT_FALSE, Tarn::RESULT_NOT_FOUND, Tarn::RESULT_PARAM}));
        break;
      case 6:
        EXPECT_EQ(pick(2) == 0 ? Manager().CreateFilter(filter) : Manager().DeleteFilter(filter), Tarn::RESULT_FALSE);
        break;
      case 7:
        EXPECT_EQ(Manager().SetUserGroups("mover", Array(halves.at(pick(2)))), Tarn::RESULT_FALSE);
        break;
      case 8: { // a set of memberships is seen whole
        const std::vector<std::string> seen = Members(&UserManager::GetUsers, "user_id", "groups").at("mover");
        EXPECT_TRUE(seen == halves.at(0) || seen == halves.at(1)) << ::testing::PrintToString(seen);
        EXPECT_EQ(Members(&UserManager::GetGroups, "group_id", "users").count("keep"), 1U);
        break;
      }
      case 9:
        EXPECT_TRUE(Login("steady", "right"));
        EXPECT_FALSE(Login("steady", "wrong"));
        break;
      case 10:
        EXPECT_TRUE(May("steady", Perenna::METH_GET, "/steady"));
        EXPECT_FALSE(May("steady", Perenna::METH_GET, "/x"));
        EXPECT_EQ(Options("steady", "/steady"), std::vector<std::string>{"GET"});
        break;
      default: {
        Tarn::UUID key;
        store->CreateSelfAccessKey(key);
        ++keys_issued;
        for (int attempt = 0; attempt < 2; ++attempt) {
          keys_resolved += store->ResolveSelfAccessKey(key) ? 1 : 0;
        }
      }
      }
    }
  };
  std::vector<std::thread> threads;
  for (unsigned i = 1; i <= Threads; ++i) {
    threads.emplace_back(work, i);
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  RecordProperty("rounds", rounds);
  EXPECT_GT(rounds, 10 * Threads);
  // A key stamped in a second that a resolve waiting for the lock has not seen yet is dropped: rare, and never a yes.
  EXPECT_LE(keys_resolved, keys_issued);
  EXPECT_GE(keys_resolved, keys_issued / 2);
  EXPECT_EQ(Query("PRAGMA integrity_check").at(0).at(0), "ok");
  EXPECT_TRUE(Query("SELECT 1 FROM groupusers GROUP BY group_id, user_id HAVING count(*) > 1").empty())
      << "no pair is written twice";
  std::size_t listed = 0;
  for (const auto& [group_id, user_ids] : Members(&UserManager::GetGroups, "group_id", "users")) {
    EXPECT_TRUE(std::is_sorted(user_ids.begin(), user_ids.end())) << group_id;
    listed += user_ids.size();
  }
  EXPECT_EQ(Query("SELECT 1 FROM groupusers JOIN groups USING (group_id)").size(), listed);
  for (const CaptureLog::Line& line : Log()) { // the losers of a race to create, and refused lists; nothing else
    EXPECT_TRUE(line.first == Tarn::LOG_DEBUG || line.second.find("UNIQUE constraint failed") != std::string::npos ||
                line.second.find("Unknown ") == 0)
        << line.second;
  }
}
