// Random directories: the module's decisions against a plain reference, and against each other.

#include <cstdlib>
#include <random>
#include <set>

#include <regex.h>

#include "support/AccessDirectory.h"

using namespace Testing;

namespace {

struct Filter {
  std::string method, group_id, filter, action;
};

struct Directory {
  std::set<std::pair<std::string, std::string>> memberships; // group, user
  std::vector<Filter> filters;
};

bool Matches(const std::string& pattern, const std::string& url) {
  regex_t compiled{};
  if (pattern.empty() || regcomp(&compiled, pattern.c_str(), REG_EXTENDED | REG_NEWLINE | REG_NOSUB) != 0) {
    return false;
  }
  const bool matches = regexec(&compiled, url.c_str(), 0, nullptr, 0) == 0;
  regfree(&compiled);
  return matches;
}

/// The actions that concern a user on a URL, by method.
std::map<std::string, std::set<std::string>> Applicable(const Directory& directory, const std::string& user_id,
                                                        const std::string& url) {
  std::map<std::string, std::set<std::string>> actions;
  for (const Filter& filter : directory.filters) {
    if (directory.memberships.count({filter.group_id, user_id}) > 0 && Matches(filter.filter, url)) {
      actions[filter.method].insert(filter.action);
    }
  }
  return actions;
}

class Model : public AccessDirectory {
protected:
  template <class T> const T& Pick(const std::vector<T>& choices) { return choices[m_Random() % choices.size()]; }
  std::string Pieces(const std::vector<std::string>& pieces, unsigned most) {
    std::string text;
    for (auto count = m_Random() % (most + 1); count > 0; --count) {
      text += Pick(pieces);
    }
    return text;
  }

  Directory MakeDirectory() {
    const std::vector<std::string> actions = {"Allow", "Allow", "Allow", "Deny", "allow", "DENY", ""};
    Directory directory;
    std::string sql = "BEGIN; DELETE FROM groupusers; DELETE FROM filters;";
    for (auto count = m_Random() % 8; count > 0; --count) {
      const std::pair<std::string, std::string> pair = {Pick(Groups), Pick(UserIds)};
      directory.memberships.insert(pair);
      sql += "INSERT INTO groupusers VALUES('" + pair.first + "','" + pair.second + "');"; // at times twice
    }
    for (auto count = m_Random() % 25; count > 0; --count) {
      const Filter filter = {Pick(Methods), Pick(Groups),
                             Pieces({"^", "$", "/", "a", "b", ".", "a*", "(a|b)", "[^a]", "\n", "(", "a{2}", "?"}, 4),
                             Pick(actions)};
      directory.filters.push_back(filter);
      sql += "INSERT INTO filters VALUES('" + filter.method + "','" + filter.group_id + "','" + filter.filter + "','" +
             filter.action + "');";
    }
    Run(sql + "COMMIT");
    return directory;
  }

  const std::vector<std::string> Methods = {"GET", "GET", "PUT", "POST", "DELETE", "OPTIONS", "get", "SEARCH"};
  const std::vector<std::string> Groups = {"g", "h", "i", "j"};
  const std::vector<std::string> UserIds = {"anna", "Anna", "bert"};

  void Seed(unsigned seed) { m_Random.seed(seed); }

private:
  std::mt19937 m_Random;
};

} // namespace

TEST_F(Model, DecisionsAndMethodListsAgreeWithAPlainReferenceAndWithEachOther) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): the test has no other thread
  const char* const repeat = std::getenv("PERENNA_TEST_SEED");
  const unsigned seed = repeat != nullptr ? static_cast<unsigned>(std::stoul(repeat)) : std::random_device{}();
  SCOPED_TRACE("repeat with PERENNA_TEST_SEED=" + std::to_string(seed));
  Seed(seed);
  int granted = 0;
  int refused = 0;
  for (int round = 0; round < 60; ++round) {
    const Directory directory = MakeDirectory();
    for (int request = 0; request < 20; ++request) {
      const std::string user_id = Pick(UserIds);
      const std::string url = "/" + Pieces({"a", "b", "/", "aa", "\n", "?"}, 5);
      const auto actions = Applicable(directory, user_id, url);
      std::vector<std::string> expected;
      for (const auto& [method, verdicts] : actions) {
        if (verdicts.count("Allow") > 0 && verdicts.count("Deny") == 0) {
          expected.push_back(method);
        }
      }
      SCOPED_TRACE("round " + std::to_string(round) + ", user " + user_id + ", URL " + ::testing::PrintToString(url));
      bool any = false;
      const std::vector<std::string> listed = Options(user_id, url, &any);
      ASSERT_EQ(listed, expected);
      ASSERT_EQ(any, !actions.empty());
      for (unsigned method = Perenna::METH_OPTIONS; method < Perenna::METH_MAX; ++method) {
        const std::string name = Perenna::MethodToString(static_cast<Perenna::Method_t>(method));
        const bool may = May(user_id, static_cast<Perenna::Method_t>(method), url);
        ASSERT_EQ(may, std::count(listed.begin(), listed.end(), name) == 1) << name;
        ++(may ? granted : refused);
      }
    }
  }
  EXPECT_GT(granted, 50) << "the directories are no test otherwise";
  EXPECT_GT(refused, 50);
}
