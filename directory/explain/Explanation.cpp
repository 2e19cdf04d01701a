#include "directory/explain/Explanation.h"

#include <algorithm>

#include "PN_Regex.h"
#include "directory/Failure.h"
#include "directory/member/Membership.h"
#include "directory/text/Vocabulary.h"

namespace AccessDirectory {

namespace {

constexpr int Attempts = 20; // tries to see an unchanged directory

// The comparison of the method is SQLite's, as in the decision itself.
constexpr const char* FiltersOfUser =
    "SELECT group_id, method, CAST(filter AS TEXT) AS filter, CAST(action AS TEXT) AS action, method = ? AS named "
    "FROM filters WHERE group_id IN (SELECT group_id FROM groupusers WHERE user_id = ?) ORDER BY group_id, rowid";

constexpr int DenyRank = 0;
constexpr int DoubtRank = 1;
constexpr int AllowRank = 2;

/// One Deny settles it, then doubt, then one Allow.
int Rank(const ExplainedFilter& filter) {
  if (filter.names_method && filter.undecided) {
    return DoubtRank;
  }
  if (!filter.Applies()) {
    return AllowRank + 2;
  }
  return filter.action == Deny ? DenyRank : filter.action == Allow ? AllowRank : AllowRank + 1;
}

std::vector<ExplainedFilter> Filters(Database& database, const Perenna::HTTPRequest& request,
                                     const std::string& user_id) {
  std::vector<ExplainedFilter> filters;
  Statement(database, FiltersOfUser)
      .ForEach({MethodToString(request.Method()), user_id}, [&](const Perenna::PListDict& row) {
        ExplainedFilter& filter = filters.emplace_back();
        filter.group = Field(row, "group_id");
        filter.method = Field(row, "method");
        filter.pattern = Field(row, "filter");
        filter.action = Field(row, "action");
        filter.names_method = Field(row, "named") == "1";
        std::size_t begin = 0;
        std::size_t end = 0;
        const Perenna::RegularExpression pattern(filter.pattern);
        filter.undecided = pattern.Test(request.URL().c_str()) == Perenna::RegularExpression::Outcome::Undecided;
        filter.matches = pattern.match(request.URL(), begin, end);
        filter.part = request.URL().substr(begin, end - begin);
      });
  std::stable_sort(filters.begin(), filters.end(),
                   [](const ExplainedFilter& left, const ExplainedFilter& right) { return Rank(left) < Rank(right); });
  if (!filters.empty()) {
    const int rank = Rank(filters.front());
    filters.front().decides = rank == DenyRank || rank == AllowRank;
  }
  return filters;
}

} // namespace

Explanation Explain(Module& module, Database& database, const Perenna::HTTPRequest& request,
                    const std::string& user_id) {
  for (int attempt = 0; attempt < Attempts; ++attempt) {
    const long long before = database.Number("PRAGMA data_version");
    Explanation explanation;
    {
      const Snapshot snapshot(database);
      explanation.user_exists = UserExists(database, user_id);
      explanation.groups =
          database.Texts("SELECT DISTINCT group_id FROM groupusers WHERE user_id = ? ORDER BY group_id", {user_id});
      explanation.filters = Filters(database, request, user_id);
    }
    explanation.allowed = module.Ask(
        [&](LocalAccessManager::UserManager& manager) { return manager.TestRequestForUser(request, user_id); });
    if (database.Number("PRAGMA data_version") != before) {
      continue;
    }
    const bool explained = !explanation.filters.empty() && explanation.filters.front().decides &&
                           explanation.filters.front().action == Allow;
    if (explained != explanation.allowed) {
      throw Failure(Failure::Kind::System, "the stored filters do not explain the module's answer (" +
                                               std::string(explanation.allowed ? "allowed" : "refused") +
                                               "): this is a fault of perenna-access");
    }
    return explanation;
  }
  throw Failure(Failure::Kind::System, "the directory kept changing while the answer was being explained");
}

const ExplainedFilter* Explanation::InDoubt() const noexcept {
  const auto open = std::find_if(filters.begin(), filters.end(),
                                 [](const ExplainedFilter& filter) { return filter.names_method && filter.undecided; });
  return open == filters.end() ? nullptr : &*open;
}

std::string Explanation::Reason() const {
  if (!filters.empty() && filters.front().decides) {
    const ExplainedFilter& decider = filters.front();
    return (allowed ? "allowed by" : "refused by") + (" " + decider.action) + " of group " + Quoted(decider.group) +
           ", pattern \"" + Shown(decider.pattern, Backslash::Kept) + '"';
  }
  if (const ExplainedFilter* const open = InDoubt(); open != nullptr) {
    return "refused: it is too costly to find out whether the pattern \"" + Shown(open->pattern, Backslash::Kept) +
           "\" of group " + Quoted(open->group) + " matches, and it might refuse";
  }
  if (!user_exists && groups.empty()) {
    return "refused: there is no such user";
  }
  if (groups.empty()) {
    return "refused: the user is in no group";
  }
  if (filters.empty()) {
    return "refused: the user's groups have no filter";
  }
  return "refused by default: no Allow or Deny filter of the user's groups names the method and matches the URL";
}

Json Explanation::ToJson() const {
  Json rows = Json::array();
  for (const ExplainedFilter& filter : filters) {
    rows.push_back({{"group_id", JsonText(filter.group)},
                    {"method", JsonText(filter.method)},
                    {"filter", JsonText(filter.pattern)},
                    {"action", JsonText(filter.action)},
                    {"names_method", filter.names_method},
                    {"matches", filter.matches},
                    {"part", filter.matches ? JsonText(filter.part) : Json()},
                    {"undecided", filter.undecided},
                    {"decides", filter.decides}});
  }
  Json list = Json::array();
  for (const std::string& group : groups) {
    list.push_back(JsonText(group));
  }
  return {{"reason", Reason()}, {"groups", std::move(list)}, {"filters", std::move(rows)}};
}

Json CheckJson(const Perenna::HTTPRequest& request, const std::string& user_id, const Explanation& explanation) {
  Json json = {{"user_id", JsonText(user_id)},
               {"user_exists", explanation.user_exists},
               {"method", MethodToString(request.Method())},
               {"url", JsonText(request.URL())},
               {"allowed", explanation.allowed}};
  json.update(explanation.ToJson());
  return json;
}

} // namespace AccessDirectory
