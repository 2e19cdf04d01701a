#include "directory/explain/WhoMay.h"

#include <algorithm>
#include <map>
#include <unordered_map>

#include "PN_Regex.h"
#include "directory/text/Vocabulary.h"

namespace AccessDirectory {

namespace {

using Outcome = Perenna::RegularExpression::Outcome;

/// A group's id as it is compared: a blob equals no text.
using GroupKey = std::pair<bool, std::string>;

/// What the filters of one group say about the request.
struct GroupVerdict {
  std::optional<GroupFilter> deny;
  std::optional<GroupFilter> undecided;
  std::optional<GroupFilter> allow;
};

constexpr const char* FiltersOfMethod =
    "SELECT typeof(group_id) = 'blob' AS is_blob, CAST(group_id AS TEXT) AS group_id, CAST(filter AS TEXT) AS filter, "
    "CAST(action AS TEXT) AS action FROM filters WHERE method = ? ORDER BY filters.group_id, filters.rowid";

// The memberships of users that there are, as the module compares ids: a blob is nobody's.
constexpr const char* MembershipsOfUsers =
    "SELECT user_id, typeof(group_id) = 'blob' AS is_blob, CAST(group_id AS TEXT) AS group_id FROM groupusers "
    "WHERE typeof(user_id) = 'text' AND user_id <> '' AND user_id IN (SELECT user_id FROM users) "
    "ORDER BY user_id, groupusers.group_id";

bool HoldsNul(const std::string& text) {
  return text.find('\0') != std::string::npos;
}

GroupKey KeyOf(const Perenna::PListDict& row) {
  return {Field(row, "is_blob") == "1", Field(row, "group_id")};
}

std::map<GroupKey, GroupVerdict> JudgeGroups(Database& database, const Perenna::HTTPRequest& request) {
  std::map<GroupKey, GroupVerdict> verdicts;
  std::unordered_map<std::string, Outcome> outcomes; // of each pattern
  Statement(database, FiltersOfMethod).ForEach({MethodToString(request.Method())}, [&](const Perenna::PListDict& row) {
    const GroupFilter filter = {Field(row, "group_id"), Field(row, "filter"), Field(row, "action")};
    auto known = outcomes.find(filter.pattern);
    if (known == outcomes.end()) {
      const Outcome outcome = Perenna::RegularExpression(filter.pattern).Test(request.URL().c_str());
      known = outcomes.emplace(filter.pattern, outcome).first;
    }
    if (known->second == Outcome::NoMatch) {
      return;
    }
    GroupVerdict& verdict = verdicts[KeyOf(row)];
    std::optional<GroupFilter>* const place = known->second == Outcome::Undecided ? &verdict.undecided
                                              : filter.action == Deny             ? &verdict.deny
                                              : filter.action == Allow            ? &verdict.allow
                                                                                  : nullptr;
    if (place != nullptr && !*place) {
      *place = filter;
    }
  });
  return verdicts;
}

/// The memberships of one user, in ascending order of the groups.
class UserJudgement {
public:
  explicit UserJudgement(std::string user_id) : m_UserId(std::move(user_id)) {}
  const std::string& UserId() const noexcept { return m_UserId; }

  void Add(const GroupVerdict& verdict) {
    TakeFirst(m_All.deny, verdict.deny);
    TakeFirst(m_All.undecided, verdict.undecided);
    TakeFirst(m_All.allow, verdict.allow);
  }

  /// One Deny settles it, then doubt, then one Allow. Nothing when no filter does.
  std::optional<UserVerdict> Verdict() const {
    if (m_All.deny || m_All.undecided) {
      return UserVerdict{m_UserId, false, m_All.deny ? *m_All.deny : *m_All.undecided, !m_All.deny, m_All.allow};
    }
    return m_All.allow ? std::optional(UserVerdict{m_UserId, true, *m_All.allow, false, std::nullopt}) : std::nullopt;
  }

private:
  static void TakeFirst(std::optional<GroupFilter>& mine, const std::optional<GroupFilter>& other) {
    if (!mine) {
      mine = other;
    }
  }

  std::string m_UserId;
  GroupVerdict m_All;
};

} // namespace

Json GroupFilter::ToJson() const {
  return {{"group_id", JsonText(group)}, {"filter", JsonText(pattern)}, {"action", JsonText(action)}};
}

std::vector<UserVerdict> WhoMay(Database& database, const Perenna::HTTPRequest& request, Verdicts wanted) {
  std::vector<UserVerdict> verdicts;
  if (HoldsNul(request.URL())) { // the module judges none
    return verdicts;
  }
  const Snapshot snapshot(database);
  const std::map<GroupKey, GroupVerdict> groups = JudgeGroups(database, request);
  if (groups.empty()) {
    return verdicts;
  }
  UserJudgement user("");
  const auto finish = [&] {
    std::optional<UserVerdict> verdict = user.Verdict();
    if (verdict && verdict->allowed == (wanted == Verdicts::Allowed) && !HoldsNul(verdict->user_id)) {
      verdicts.push_back(std::move(*verdict));
    }
  };
  Statement(database, MembershipsOfUsers).ForEach({}, [&](const Perenna::PListDict& row) {
    const std::string& user_id = Field(row, "user_id");
    if (user_id != user.UserId()) {
      finish();
      user = UserJudgement(user_id);
    }
    if (const auto verdict = groups.find(KeyOf(row)); verdict != groups.end()) {
      user.Add(verdict->second);
    }
  });
  finish();
  return verdicts;
}

Json WhoJson(const Perenna::HTTPRequest& request, Verdicts wanted, const std::vector<UserVerdict>& verdicts,
             std::size_t limit) {
  Json users = Json::array();
  for (std::size_t index = 0; index < std::min(limit, verdicts.size()); ++index) {
    const UserVerdict& verdict = verdicts[index];
    Json user = {{"user_id", JsonText(verdict.user_id)}, {"decider", verdict.decider.ToJson()}};
    if (wanted == Verdicts::Refused) {
      user["undecided"] = verdict.undecided;
      user["overruled"] = verdict.overruled ? verdict.overruled->ToJson() : Json();
    }
    users.push_back(std::move(user));
  }
  return {{"method", MethodToString(request.Method())},
          {"url", JsonText(request.URL())},
          {"allowed", wanted == Verdicts::Allowed},
          {"total", verdicts.size()},
          {"users", std::move(users)}};
}

} // namespace AccessDirectory
