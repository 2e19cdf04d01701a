// Over generated directories the explanation never disagrees with the module's own verdict: it would throw.

#include <algorithm>
#include <cstdlib>
#include <map>
#include <random>

#include <gtest/gtest.h>

#include "ToolDirectory.h"
#include "directory/explain/Explanation.h"
#include "directory/explain/WhoMay.h"
#include "directory/replay/Policy.h"

namespace Testing {
namespace {

using Texts = std::vector<std::string>;

constexpr int Directories = 25;
constexpr int RequestsToEach = 30;

const Texts Users = {"ann", "bob", "an n", "\xc3\xbc", "' OR 1=1 --"};
const Texts Groups = {"a", "b", "c"};
const Texts Methods = {"GET", "PUT", "POST", "get", "BREW", ""};
const Texts Actions = {"Allow", "Allow", "Allow", "Deny", "deny", "ALLOW", "", "Allow "};
const Texts Patterns = {"^/a",
                        "/a$",
                        "b+",
                        ".",
                        "",
                        "(",
                        "[",
                        "a{2",
                        "^$",
                        "\\",
                        "^/(a|b)/[0-9]+$",
                        "((a{200}){200}){200}", // too costly to try
                        "x*",
                        "\xc3\xbc",
                        "^[^/]",
                        "^b$",
                        "a.b",
                        "(^|/)b(/|$)",
                        "\n",
                        "%",
                        "$^"};
const Texts Urls = {"/a", "/a/7", "/b/12", "/", "", "/aab", "b\nb", "a\nb", "/\xc3\xbc", "/x?y=b", "%", "/c"};

class ExplanationProperty : public ToolDirectory {
protected:
  const std::string& One(const Texts& texts) { return texts[m_Random() % texts.size()]; }

  /// Some rows are there twice.
  void Generate() {
    BareDatabase database(File());
    database.Run("BEGIN; DELETE FROM users; DELETE FROM groups; DELETE FROM groupusers; DELETE FROM filters");
    for (auto rows = m_Random() % 8; rows > 0; --rows) {
      database.Query("INSERT OR IGNORE INTO users VALUES(?1, 'plain_pw', 'x', '', '')", {One(Users)});
      database.Query("INSERT INTO groupusers VALUES(?1, ?2)", {One(Groups), One(Users)});
    }
    for (auto rows = m_Random() % 25; rows > 0; --rows) {
      database.Query("INSERT INTO filters VALUES(?1, ?2, ?3, ?4)",
                     {One(Methods), One(Groups), One(Patterns), One(Actions)});
    }
    database.Run("COMMIT");
  }

  Perenna::HTTPRequest AnyRequest() {
    const auto method = static_cast<Perenna::Method_t>(m_Random() % Perenna::METH_MAX);
    return {method, One(Urls)};
  }

  /// `who` is the explanation of every user, read the other way.
  static void CompareWithWho(AccessDirectory::Module& module, AccessDirectory::Database& database,
                             const Perenna::HTTPRequest& asked) {
    using AccessDirectory::Verdicts;
    std::map<std::string, AccessDirectory::UserVerdict> verdicts;
    for (const Verdicts wanted : {Verdicts::Allowed, Verdicts::Refused}) {
      for (const auto& verdict : WhoMay(database, asked, wanted)) {
        EXPECT_TRUE(verdicts.emplace(verdict.user_id, verdict).second) << verdict.user_id;
      }
    }
    for (const std::string& user : Users) {
      const auto explanation = AccessDirectory::Explain(module, database, asked, user);
      const auto verdict = verdicts.find(user);
      const bool settled = !explanation.filters.empty() && explanation.filters.front().decides;
      ASSERT_EQ(verdict != verdicts.end(), explanation.user_exists && (settled || explanation.InDoubt() != nullptr));
      if (verdict != verdicts.end()) {
        const auto& decider = settled ? explanation.filters.front() : *explanation.InDoubt();
        EXPECT_EQ(verdict->second.allowed, explanation.allowed);
        EXPECT_EQ(verdict->second.undecided, !settled);
        EXPECT_EQ((Texts{verdict->second.decider.group, verdict->second.decider.pattern}),
                  (Texts{decider.group, decider.pattern}));
      }
    }
  }

  /// The rules in memory give the same answers, by the same filters.
  static void CompareWithPolicy(AccessDirectory::Policy& policy, const Perenna::HTTPRequest& asked,
                                const std::string& user, const AccessDirectory::Explanation& explanation) {
    const auto verdict = policy.Judge(user, asked.Method(), asked.URL());
    const bool settled = !explanation.filters.empty() && explanation.filters.front().decides;
    const auto* const decider = settled ? &explanation.filters.front() : explanation.InDoubt();
    EXPECT_EQ(verdict.allowed, explanation.allowed);
    EXPECT_EQ(verdict.undecided, !settled && decider != nullptr);
    ASSERT_EQ(verdict.decider == nullptr, decider == nullptr);
    if (decider != nullptr) {
      EXPECT_EQ((Texts{verdict.decider->group, verdict.decider->pattern}), (Texts{decider->group, decider->pattern}));
    }
  }

  /// What repeats a run: PERENNA_TEST_SEED in the environment.
  std::string Seed() const { return "PERENNA_TEST_SEED=" + std::to_string(m_Seed); }

private:
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody sets variables
  const char* m_Given = std::getenv("PERENNA_TEST_SEED");
  unsigned m_Seed = m_Given == nullptr ? std::random_device()() : static_cast<unsigned>(std::stoul(m_Given));
  std::mt19937 m_Random{m_Seed};
};

TEST_F(ExplanationProperty, AgreesWithTheModule) {
  AccessDirectory::Module module(File());
  AccessDirectory::Database database(File(), AccessDirectory::Database::Access::Read);
  int verdicts[] = {0, 0};
  for (int directory = 0; directory < Directories && !HasFailure(); ++directory) {
    Generate();
    AccessDirectory::Policy policy(database);
    for (int request = 0; request < RequestsToEach && !HasFailure(); ++request) {
      const Perenna::HTTPRequest asked = AnyRequest();
      const std::string& user = One(Users);
      SCOPED_TRACE(Seed() + ::testing::PrintToString(Texts{MethodToString(asked.Method()), asked.URL(), user}));
      const auto explanation = AccessDirectory::Explain(module, database, asked, user);
      ++verdicts[explanation.allowed ? 1 : 0];
      const auto deciders = std::count_if(explanation.filters.begin(), explanation.filters.end(),
                                          [](const auto& filter) { return filter.decides && filter.Applies(); });
      EXPECT_EQ(deciders, explanation.Reason().find("ed by ") != std::string::npos &&
                                  explanation.Reason().find("by default") == std::string::npos
                              ? 1
                              : 0)
          << explanation.Reason();
      CompareWithWho(module, database, asked);
      CompareWithPolicy(policy, asked, user, explanation);
    }
  }
  EXPECT_GT(verdicts[0], Directories);
  EXPECT_GT(verdicts[1], 0);
}

} // namespace
} // namespace Testing
