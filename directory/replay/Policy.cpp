#include "directory/replay/Policy.h"

#include "directory/text/Vocabulary.h"
#include "platform/pattern/Tree.h"

namespace AccessDirectory {

namespace {

using Outcome = Perenna::RegularExpression::Outcome;

constexpr std::size_t KnownVerdicts = 300000;

constexpr const char* FiltersOfMethod =
    "SELECT typeof(group_id) = 'blob' AS is_blob, CAST(group_id AS TEXT) AS group_id, CAST(filter AS TEXT) AS filter, "
    "CAST(action AS TEXT) AS action FROM filters WHERE method = ? ORDER BY filters.group_id, filters.rowid";

// As the module compares ids: a blob is nobody's.
constexpr const char* MembershipRows =
    "SELECT user_id, typeof(group_id) = 'blob' AS is_blob, CAST(group_id AS TEXT) AS group_id FROM groupusers "
    "WHERE typeof(user_id) = 'text' AND user_id <> '' ORDER BY user_id, groupusers.group_id";

bool HoldsNul(const std::string& text) {
  return text.find('\0') != std::string::npos;
}

/// What each text that the pattern matches begins with; empty when that cannot be told.
std::string BeginningOf(const std::string& pattern) {
  const auto tree = Perenna::Pattern::Tree::Read(pattern);
  return tree.GetFault() == Perenna::Pattern::Fault::None ? tree.LiteralBeginning() : std::string();
}

} // namespace

Policy::Policy(const Snapshot& /*snapshot*/, Database& database, const FilterEdit* edit) {
  ReadFilters(database, edit);
  ReadMemberships(database);
}

Policy::GroupIndex Policy::IndexOf(const GroupKey& key) {
  const auto [place, added] = m_GroupOf.emplace(key, static_cast<GroupIndex>(m_Groups.size()));
  if (added) {
    m_Groups.push_back(std::make_unique<Group>());
  }
  return place->second;
}

std::size_t Policy::PatternOf(const std::string& text) {
  const auto [place, added] = m_PatternOf.emplace(text, m_Patterns.size());
  if (added) {
    auto compiled = std::make_unique<Perenna::RegularExpression>(text);
    std::string beginning = compiled->valid() ? BeginningOf(text) : std::string();
    m_Patterns.push_back({std::move(compiled), std::move(beginning)});
  }
  return place->second;
}

void Policy::AddRule(unsigned method, GroupFilter filter, bool is_blob) {
  const bool denies = filter.action == Deny;
  const std::size_t pattern = PatternOf(filter.pattern);
  Group& group = *m_Groups[IndexOf({is_blob, filter.group})];
  // What neither allows nor denies leaves the decision open all the same where it cannot be tried.
  const bool open = m_Patterns[pattern].compiled->Test("") == Outcome::Undecided;
  if (denies || open || filter.action == Allow) {
    (denies || open ? group.denials : group.grants).at(method).push_back({std::move(filter), pattern});
  }
}

void Policy::ReadFilters(Database& database, const FilterEdit* edit) {
  Statement statement(database, FiltersOfMethod);
  for (unsigned number = 0; number < Perenna::METH_MAX; ++number) {
    const auto method = static_cast<Perenna::Method_t>(number);
    const bool is_edited = edit != nullptr && edit->method == MethodToString(method);
    const bool deletes = is_edited && edit->what == FilterEdit::What::Delete;
    statement.ForEach({MethodToString(method)}, [&](const Perenna::PListDict& row) {
      GroupFilter filter = {Field(row, "group_id"), Field(row, "filter"), Field(row, "action")};
      const bool is_blob = Field(row, "is_blob") == "1";
      const bool goes = deletes && !is_blob && edit->group == filter.group && edit->pattern == filter.pattern &&
                        edit->action == filter.action;
      if (!goes) {
        AddRule(number, std::move(filter), is_blob);
      }
    });
    if (is_edited && edit->what == FilterEdit::What::Add) { // the last row of its group
      AddRule(number, {edit->group, edit->pattern, edit->action}, false);
    }
  }
}

void Policy::ReadMemberships(Database& database) {
  std::string user_id;
  Class groups;
  Statement(database, MembershipRows).ForEach({}, [&](const Perenna::PListDict& row) {
    if (Field(row, "user_id") != user_id) {
      Join(user_id, std::move(groups));
      groups.clear();
      user_id = Field(row, "user_id");
    }
    const GroupKey key = {Field(row, "is_blob") == "1", Field(row, "group_id")};
    if (const auto known = m_GroupOf.find(key); known != m_GroupOf.end()) { // others have no filter
      groups.push_back(known->second);
    }
  });
  Join(user_id, std::move(groups));
}

void Policy::Join(const std::string& user_id, Class groups) {
  if (groups.empty() || HoldsNul(user_id)) {
    return;
  }
  const auto [place, added] = m_ClassOf.emplace(groups, m_Classes.size());
  if (added) {
    m_Classes.push_back(std::move(groups));
  }
  m_Users[user_id] = place->second;
}

Outcome Policy::Test(std::size_t pattern, const std::string& target) const {
  const Pattern& tested = m_Patterns[pattern];
  const bool cannot = !tested.beginning.empty() && target.compare(0, tested.beginning.size(), tested.beginning) != 0 &&
                      target.find('\n') == std::string::npos;
  return cannot ? Outcome::NoMatch : tested.compiled->Test(target.c_str());
}

/// One Deny settles it, then doubt, then one Allow.
Policy::Verdict Policy::JudgeClass(const Class& groups, Perenna::Method_t method, const std::string& target) const {
  const GroupFilter* open = nullptr;
  for (const GroupIndex group : groups) {
    for (const Rule& rule : m_Groups[group]->denials[method]) {
      const Outcome outcome = Test(rule.pattern, target);
      if (outcome == Outcome::Match) {
        return {false, false, &rule.filter};
      }
      open = open == nullptr && outcome == Outcome::Undecided ? &rule.filter : open;
    }
  }
  const GroupFilter* grant = nullptr;
  for (const GroupIndex group : groups) {
    for (const Rule& rule : m_Groups[group]->grants[method]) {
      const Outcome outcome = Test(rule.pattern, target);
      open = open == nullptr && outcome == Outcome::Undecided ? &rule.filter : open;
      grant = grant == nullptr && outcome == Outcome::Match ? &rule.filter : grant;
      if (grant != nullptr) {
        break;
      }
    }
  }
  return open != nullptr ? Verdict{false, true, open} : Verdict{grant != nullptr, false, grant};
}

Policy::Verdict Policy::Judge(const std::string& user_id, Perenna::Method_t method, const std::string& target) {
  const auto user = m_Users.find(user_id);
  if (user == m_Users.end() || HoldsNul(target) || method >= Perenna::METH_MAX) {
    return {};
  }
  std::string key = std::to_string(user->second) + ' ' + std::to_string(static_cast<unsigned>(method)) + ' ' + target;
  if (const auto known = m_Known.find(key); known != m_Known.end()) {
    return known->second;
  }
  if (m_Known.size() >= KnownVerdicts) {
    m_Known.clear();
  }
  return m_Known.emplace(std::move(key), JudgeClass(m_Classes[user->second], method, target)).first->second;
}

} // namespace AccessDirectory
