// The lock: while one thread is at work on the directory, every other waits.

#include <gmock/gmock.h>

#include "support/AccessDirectory.h"

using namespace Testing;

namespace {

/// At every line that the thread under test logs, lets another thread try an operation: "w" when it has to wait, "-"
/// when it is answered at once.
class RivalLog : public CaptureLog {
public:
  explicit RivalLog(std::function<void()> act) : m_Act(std::move(act)) {}

  std::string Take() {
    m_Rivals = {}; // they end, now that the lock is free
    return std::exchange(m_Seen, "");
  }
  void VLog(Tarn::LogType_t, const char*, std::va_list) override {
    if (std::this_thread::get_id() == m_Owner) {
      m_Seen += m_Rivals.Wait(m_Act) ? 'w' : '-';
    }
  }

private:
  std::function<void()> m_Act;
  std::thread::id m_Owner = std::this_thread::get_id();
  Rivals m_Rivals;
  std::string m_Seen;
};

class Locks : public AccessDirectory {};

} // namespace

TEST_F(Locks, AreHeldFromTheFirstStatementToTheLastAndNotOverADigest) {
  AddGroup("g", {"root"});
  AddFilter("GET g ( Allow");
  for (const std::string table : {"users", "groups", "groupusers", "filters"}) {
    for (const std::string event : {"INSERT", "DELETE"}) { // whatever is written fails, which is logged
      std::string trigger = "CREATE TRIGGER no_";
      trigger.append(event).append(table).append(" BEFORE ").append(event).append(" ON ").append(table);
      Run(trigger + " BEGIN SELECT RAISE(ABORT, 'refused'); END");
    }
  }
  Perenna::X509Thumbprint thumbprint;
  thumbprint.Set(reinterpret_cast<const Tarn::byte_t*>("twenty bytes, no less"));
  const Perenna::HTTPRequest request(Perenna::METH_GET, "/");
  const Perenna::PListDict filter = Fields("method=GET group_id=g filter=( action=Allow");
  Perenna::PagedResults::ResultState page;
  Perenna::PListDict document;
  Perenna::PListArray methods;
  std::string found;
  struct Case {
    std::string without, lines; // the table that is missing, and what other threads find at each line
    std::function<void()> run;
  };
  const std::vector<Case> cases = {
      {"", "w", [&] { Manager().CreateUser(Fields("user_id=new create_user=root password=p")); }},
      {"", "ww", [&] { Manager().DeleteUser("root"); }},
      {"", "w", [&] { Manager().CreateGroup(Fields("group_id=new group_name=n")); }},
      {"", "ww", [&] { Manager().DeleteGroup("g"); }},
      {"", "ww", [&] { Manager().SetGroupUsers("g", Array({"root"})); }},
      {"", "ww", [&] { Manager().SetUserGroups("root", Array({"g"})); }},
      {"", "w", [&] { Manager().CreateFilter(filter); }},
      {"", "w", [&] { Manager().DeleteFilter(filter); }},
      {"", "w", [&] { May("root", "GET /"); }},
      {"", "w", [&] { Options("root", "/"); }},
      {"", "-", [&] { Login("root", "root"); }},
      {"groupusers", "w+", [&] { Manager().GetUsers(page, document); }},
      {"groupusers", "w+", [&] { Manager().GetGroups(page, document); }},
      {"users", "w+", [&] { Manager().GetUsers(page, document); }},
      {"groups", "w+", [&] { Manager().GetGroups(page, document); }},
      {"filters", "w+", [&] { Manager().GetFilters(page, document); }},
      {"users", "w+", [&] { Login("root", "root"); }},
      {"users", "w+", [&] { Manager().TestUserCertificate(request, Perenna::X509Certificate(thumbprint), found); }},
      {"users", "w+", [&] { Manager().UserExists("root"); }},
      {"groups", "w+", [&] { Manager().GroupExists("g"); }},
      {"filters", "w+", [&] { May("root", "GET /"); }},
      {"filters", "w+", [&] { Options("root", "/"); }}};
  RivalLog log([&] { Manager().UserExists("root"); });
  for (std::size_t i = 0; i < cases.size(); ++i) {
    const std::string& table = cases[i].without;
    table.empty() ? void() : Run("ALTER TABLE " + table + " RENAME TO hidden");
    cases[i].run();
    EXPECT_THAT(log.Take(), ::testing::MatchesRegex(cases[i].lines)) << "case " << i;
    table.empty() ? void() : Run("ALTER TABLE hidden RENAME TO " + table);
  }
}

// For a sanitizer that finds data races; and a set of memberships is seen whole.
TEST_F(Locks, OperationsOfManyThreadsNeverMixTheirStatements) {
  AddUser("mover");
  for (const std::string group_id : {"a", "b", "c", "d"}) {
    AddGroup(group_id);
  }
  AddFilter("GET a ^/ Allow");
  AddFilter("GET d ^/ Deny");
  const std::vector<std::vector<std::string>> halves = {{"a", "b"}, {"c", "d"}};
  ASSERT_EQ(Manager().SetUserGroups("mover", Array(halves[0])), Tarn::RESULT_FALSE);
  std::vector<std::thread> threads;
  for (unsigned number = 0; number < 4; ++number) {
    threads.emplace_back([&, number] {
      const std::string user_id = "user" + std::to_string(number);
      for (unsigned round = 0; round < 25; ++round) {
        EXPECT_EQ(Manager().SetUserGroups("mover", Array(halves[(round + number) % 2])), Tarn::RESULT_FALSE);
        const std::string options = Options("mover", "/");
        EXPECT_TRUE(options == "yes GET" || options == "yes") << options;
        AddUser(user_id);
        EXPECT_TRUE(Login(user_id, "a password"));
        EXPECT_EQ(Manager().DeleteUser(user_id), Tarn::RESULT_OK);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(Rows("SELECT group_concat(group_id, '') IN ('ab', 'cd') FROM (SELECT * FROM groupusers ORDER BY 1)"), "1");
  EXPECT_EQ(Log().find("E:"), std::string::npos);
}
