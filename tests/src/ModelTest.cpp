// Random directories: the module's decisions against a plain reference, and against each other.

#include <algorithm>
#include <array>
#include <map>
#include <set>

#include <regex.h>

#include "platform/Helpers.h"
#include "support/AccessDirectory.h"

using namespace Testing;

namespace {

/// Method, group, pattern, action.
using Filter = std::array<std::string, 4>;

bool Matches(const std::string& pattern, const std::string& url) {
  regex_t compiled{};
  if (pattern.empty() || regcomp(&compiled, pattern.c_str(), REG_EXTENDED | REG_NEWLINE | REG_NOSUB) != 0) {
    return false;
  }
  const bool matches = regexec(&compiled, url.c_str(), 0, nullptr, 0) == 0;
  regfree(&compiled);
  return matches;
}

class Model : public AccessDirectory {
protected:
  std::string Pick(const std::vector<std::string>& choices) { return choices[random.Below(choices.size())]; }
  std::string Pieces(const std::vector<std::string>& pieces, std::size_t most) {
    std::string text;
    for (std::size_t count = random.Below(most + 1); count > 0; --count) {
      text += Pick(pieces);
    }
    return text;
  }

  void MakeDirectory() {
    memberships.clear();
    filters.clear();
    std::string sql = "BEGIN; DELETE FROM groupusers; DELETE FROM filters;";
    for (std::size_t count = random.Below(8); count > 0; --count) {
      const auto [group_id, user_id] = std::pair(Pick(groups), Pick(user_ids)); // at times twice
      memberships.emplace(group_id, user_id);
      sql.append("INSERT INTO groupusers VALUES('").append(group_id).append("','").append(user_id).append("');");
    }
    for (std::size_t count = random.Below(25); count > 0; --count) {
      const Filter filter = {Pick({"GET", "GET", "PUT", "POST", "DELETE", "OPTIONS", "get", "SEARCH"}), Pick(groups),
                             Pieces({"^", "$", "/", "a", "b", ".", "a*", "(a|b)", "[^a]", "\n", "(", "a{2}", "?"}, 4),
                             Pick({"Allow", "Allow", "Allow", "Deny", "allow", "DENY", ""})};
      sql += "INSERT INTO filters VALUES('" + filter[0] + "','" + filter[1] + "','" + filter[2] + "','" + filter[3] +
             "');";
      filters.push_back(filter);
    }
    Run(sql + "COMMIT");
  }

  const std::vector<std::string> groups = {"g", "h", "i", "j"};
  const std::vector<std::string> user_ids = {"anna", "Anna", "bert"};
  std::set<std::pair<std::string, std::string>> memberships;
  std::vector<Filter> filters;
  Random random;
};

} // namespace

TEST_F(Model, DecisionsAndMethodListsAgreeWithAPlainReferenceAndWithEachOther) {
  SCOPED_TRACE(random.Trace());
  int granted = 0;
  for (int round = 0; round < 60; ++round) {
    MakeDirectory();
    for (int request = 0; request < 20; ++request) {
      const std::string user_id = Pick(user_ids);
      const std::string url = "/" + Pieces({"a", "b", "/", "aa", "\n", "?"}, 5);
      SCOPED_TRACE("round " + std::to_string(round) + ", user " + user_id + ", URL " + ::testing::PrintToString(url));
      std::map<std::string, std::set<std::string>> actions; // that apply, by method
      for (const auto& [method, group_id, pattern, action] : filters) {
        if (memberships.count({group_id, user_id}) > 0 && Matches(pattern, url)) {
          actions[method].insert(action);
        }
      }
      std::string expected = actions.empty() ? "no" : "yes";
      std::set<std::string> allowed;
      for (const auto& [method, verdicts] : actions) {
        if (verdicts.count("Allow") > 0 && verdicts.count("Deny") == 0) {
          allowed.insert(method);
          expected += " " + method;
        }
      }
      ASSERT_EQ(Options(user_id, url), expected);
      for (unsigned method = Perenna::METH_OPTIONS; method < Perenna::METH_MAX; ++method) {
        const std::string name = Perenna::MethodToString(static_cast<Perenna::Method_t>(method));
        const bool may = Manager().TestRequestForUser({static_cast<Perenna::Method_t>(method), url}, user_id);
        ASSERT_EQ(may, allowed.count(name) > 0) << name;
        granted += may ? 1 : 0;
      }
    }
  }
  EXPECT_GT(granted, 50) << "the directories are no test otherwise";
}
