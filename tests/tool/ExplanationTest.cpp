// Over generated directories: the explanation and the list of methods never disagree with the module's own verdict, and
// what they say about single filters is true.

#include <algorithm>
#include <cstdlib>
#include <random>

#include <regex.h>

#include <gtest/gtest.h>

#include "ToolDirectory.h"
#include "directory/Explanation.h"

namespace Testing {
namespace {

constexpr int Directories = 25;
constexpr int RequestsToEach = 30;

const std::vector<std::string> Users = {"ann", "bob", "an n", "\xc3\xbc", "' OR 1=1 --"};
const std::vector<std::string> Groups = {"a", "b", "c"};
const std::vector<std::string> Methods = {"GET", "PUT", "POST", "get", "BREW", ""};
const std::vector<std::string> Actions = {"Allow", "Allow", "Allow", "Deny", "deny", "ALLOW", "", "Allow "};
const std::vector<std::string> Patterns = {
    "^/a", "/a$",      "b+",    ".",   "",    "(",           "[",  "a{2", "^$", "\\", "^/(a|b)/[0-9]+$",
    "x*",  "\xc3\xbc", "^[^/]", "^b$", "a.b", "(^|/)b(/|$)", "\n", "%",   "$^"};
const std::vector<std::string> Urls = {"/a",   "/a/7", "/b/12",     "/",      "",  "/aab",
                                       "b\nb", "a\nb", "/\xc3\xbc", "/x?y=b", "%", "/c"};

class ExplanationProperty : public ToolDirectory {
protected:
  const std::string& One(const std::vector<std::string>& texts) {
    return texts[std::uniform_int_distribution<std::size_t>(0, texts.size() - 1)(m_Random)];
  }
  std::mt19937& Random() { return m_Random; }
  bool Chance(double probability) { return std::bernoulli_distribution(probability)(m_Random); }

  void Generate() {
    BareDatabase database(File());
    database.Run("BEGIN; DELETE FROM users; DELETE FROM groups; DELETE FROM groupusers; DELETE FROM filters");
    for (const std::string& user : Users) {
      if (Chance(0.8)) {
        database.Query("INSERT INTO users VALUES(?1, 'plain_pw', 'x', '', '')", {user});
      }
      for (const std::string& group : Groups) {
        for (int copies = Chance(0.5) ? (Chance(0.2) ? 2 : 1) : 0; copies > 0; --copies) {
          database.Query("INSERT INTO groupusers VALUES(?1, ?2)", {group, user});
        }
      }
    }
    const int filters = std::uniform_int_distribution<int>(0, 25)(m_Random);
    for (int i = 0; i < filters; ++i) {
      const std::vector<std::string> row = {One(Methods), One(Groups), One(Patterns), One(Actions)};
      database.Query("INSERT INTO filters VALUES(?1, ?2, ?3, ?4)", row);
      if (Chance(0.1)) {
        database.Query("INSERT INTO filters VALUES(?1, ?2, ?3, ?4)", row);
      }
    }
    database.Run("COMMIT");
  }

  /// What repeats a run: PERENNA_TEST_SEED in the environment.
  std::string Seed() const { return "PERENNA_TEST_SEED=" + std::to_string(m_Seed); }

private:
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody sets variables
  const char* m_Given = std::getenv("PERENNA_TEST_SEED");
  unsigned m_Seed = m_Given == nullptr ? std::random_device()() : static_cast<unsigned>(std::stoul(m_Given));
  std::mt19937 m_Random{m_Seed};
};

/// What the pattern matches in the URL, by the C library alone; false for no match.
bool Match(const std::string& pattern, const std::string& url, std::string& part) {
  regex_t compiled;
  if (pattern.empty() || regcomp(&compiled, pattern.c_str(), REG_EXTENDED | REG_NEWLINE) != 0) {
    return false;
  }
  regmatch_t match;
  const bool matches = regexec(&compiled, url.c_str(), 1, &match, 0) == 0;
  part = matches
             ? url.substr(static_cast<std::size_t>(match.rm_so), static_cast<std::size_t>(match.rm_eo - match.rm_so))
             : "";
  regfree(&compiled);
  return matches;
}

void ExpectTrue(const AccessDirectory::Explanation& explanation, const std::string& method, const std::string& url) {
  bool denied = false;
  bool allowed = false;
  std::size_t deciders = 0;
  for (const AccessDirectory::ExplainedFilter& filter : explanation.filters) {
    std::string part;
    const bool matches = Match(filter.pattern, url, part);
    EXPECT_EQ(filter.matches, matches) << filter.pattern;
    EXPECT_EQ(filter.part, part) << filter.pattern;
    EXPECT_EQ(filter.names_method, filter.method == method);
    if (filter.decides) {
      ++deciders;
      EXPECT_TRUE(matches && filter.method == method);
      EXPECT_EQ(filter.action, explanation.allowed ? "Allow" : "Deny");
      EXPECT_EQ(&filter, &explanation.filters.front());
    }
    denied = denied || (matches && filter.method == method && filter.action == "Deny");
    allowed = allowed || (matches && filter.method == method && filter.action == "Allow");
  }
  EXPECT_EQ(explanation.allowed, allowed && !denied);
  EXPECT_EQ(deciders, allowed || denied ? 1U : 0U);
}

TEST_F(ExplanationProperty, AgreesWithTheModule) {
  AccessDirectory::Module module(File());
  AccessDirectory::Database database(File(), AccessDirectory::Database::Access::Read);
  for (int directory = 0; directory < Directories && !HasFailure(); ++directory) {
    Generate();
    for (int request = 0; request < RequestsToEach && !HasFailure(); ++request) {
      const auto method = static_cast<Perenna::Method_t>(Random()() % Perenna::METH_MAX);
      const std::string& url = One(Urls);
      const std::string& user = One(Users);
      SCOPED_TRACE(Seed() + ", directory " + std::to_string(directory));
      SCOPED_TRACE(::testing::PrintToString(std::vector<std::string>{MethodToString(method), url, user}));
      const Perenna::HTTPRequest asked(method, url);
      const bool verdict = module.Manager().TestRequestForUser(asked, user);
      const AccessDirectory::Explanation explanation = AccessDirectory::Explain(module, database, asked, user);
      EXPECT_EQ(explanation.allowed, verdict) << explanation.Reason();
      ExpectTrue(explanation, MethodToString(method), url);

      Perenna::PListArray listed;
      module.Manager().GetOptionsMethods(asked, user, listed);
      const auto names = Texts(listed);
      EXPECT_EQ(std::count(names.begin(), names.end(), MethodToString(method)), verdict ? 1 : 0);
    }
  }
}

} // namespace
} // namespace Testing
