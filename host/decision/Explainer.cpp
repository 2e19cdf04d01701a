#include "host/decision/Explainer.h"

#include "directory/explain/Explanation.h"
#include "directory/text/Vocabulary.h"
#include "platform/pattern/Tree.h"

namespace Host {

namespace {

constexpr int BusyMilliseconds = 50;
constexpr std::size_t MaximumPatterns = 2048; // compiled ones take some kilobytes each
constexpr std::size_t MaximumUsers = 10000;
constexpr std::size_t MaximumGroups = 10000; // pairs of group and method

constexpr const char* Allow = "Allow";
constexpr const char* Deny = "Deny";

} // namespace

// The conditions are those of the module's own statement.
Explainer::Explainer(DirectoryFile& file)
    : m_Reader(file.Path(), BusyMilliseconds),
      m_Memberships(m_Reader, "SELECT DISTINCT group_id, EXISTS (SELECT 1 FROM groups WHERE groups.group_id = "
                              "groupusers.group_id) FROM groupusers WHERE user_id = ? ORDER BY group_id"),
      m_GroupFilters(m_Reader, "SELECT CAST(filter AS TEXT), CAST(action AS TEXT) FROM filters "
                               "WHERE method = ? AND group_id = ? ORDER BY rowid"),
      m_AnyUser(m_Reader, "SELECT user_id FROM users LIMIT 1") {}

void Explainer::Forget() {
  m_Users.clear();
  m_Filters.clear();
  m_SomeUser.clear();
}

const std::vector<Explainer::Membership>* Explainer::MembershipsOf(const std::string& user_id) {
  const auto known = m_Users.find(user_id);
  if (known != m_Users.end()) {
    return &known->second;
  }
  std::vector<Membership> memberships;
  const int rc = m_Memberships.Run({user_id}, [&memberships](const ReaderQuery& row) {
    const std::string group_id = row.Text(0);
    memberships.push_back({group_id, row.Number(1) != 0 && AccessDirectory::IsGroupId(group_id)});
  });
  if (rc != SQLITE_DONE) {
    return nullptr;
  }
  if (m_Users.size() >= MaximumUsers) {
    m_Users.clear();
  }
  return &(m_Users[user_id] = std::move(memberships));
}

const Explainer::Filters* Explainer::FiltersOf(const std::string& group_id, const char* method) {
  const auto known = m_Filters.find({group_id, method});
  if (known != m_Filters.end()) {
    return &known->second;
  }
  Filters filters;
  const int rc = m_GroupFilters.Run({method, group_id}, [&filters](const ReaderQuery& row) {
    Filter& filter = filters.emplace_back();
    filter.pattern = row.Text(0);
    filter.action = row.Text(1);
    filter.beginning = Perenna::Pattern::Tree::Read(filter.pattern).LiteralBeginning();
  });
  if (rc != SQLITE_DONE) {
    return nullptr;
  }
  if (m_Filters.size() >= MaximumGroups) {
    m_Filters.clear();
  }
  return &(m_Filters[{group_id, method}] = std::move(filters));
}

Perenna::RegularExpression::Outcome Explainer::Test(const Filter& filter, const std::string& url) {
  if (url.compare(0, filter.beginning.size(), filter.beginning) != 0) {
    return Perenna::RegularExpression::Outcome::NoMatch;
  }
  if (m_Patterns.size() >= MaximumPatterns) {
    m_Patterns.clear();
  }
  auto& compiled = m_Patterns[filter.pattern];
  if (compiled == nullptr) {
    compiled = std::make_unique<Perenna::RegularExpression>(filter.pattern);
  }
  return compiled->Test(url.c_str());
}

bool Explainer::Explain(Perenna::Method_t method, const std::string& url, Judgement& judgement) {
  const std::vector<Membership>* const memberships = MembershipsOf(judgement.user_id);
  if (memberships == nullptr) {
    return false;
  }
  AccessDirectory::Explanation explanation;
  explanation.allowed = judgement.outcome == Outcome::Allowed;
  explanation.user_exists = true;
  // A filter that refuses settles it, whatever grants; so one that grants is looked for only where none refuses.
  const char* const deciding = explanation.allowed ? Allow : Deny;
  AccessDirectory::ExplainedFilter& settled = explanation.filters.emplace_back(); // the text needs only this one
  using Result = Perenna::RegularExpression::Outcome;
  for (const Membership& membership : *memberships) {
    explanation.groups.push_back(membership.group_id);
    const Filters* const filters = FiltersOf(membership.group_id, Perenna::MethodToString(method));
    if (filters == nullptr) {
      return false;
    }
    for (const Filter& filter : *filters) {
      if (judgement.decider) {
        break;
      }
      const Result result = explanation.allowed && filter.action != Allow ? Result::NoMatch : Test(filter, url);
      if (filter.action == deciding && result == Result::Match) {
        judgement.decider = Decider{membership.group_id, filter.pattern, filter.action};
      } else if (result == Result::Undecided) {
        settled.names_method = settled.undecided = true;
        settled.group = membership.group_id;
        settled.pattern = filter.pattern;
      }
    }
    if (explanation.allowed && membership.is_listed) {
      judgement.groups += (judgement.groups.empty() ? "" : ",") + membership.group_id;
    }
  }
  if (judgement.decider) {
    settled.group = judgement.decider->group_id;
    settled.pattern = judgement.decider->filter;
    settled.action = judgement.decider->action;
    settled.decides = true;
  }
  judgement.reason = explanation.Reason();
  return true;
}

const std::string& Explainer::SomeUser() {
  if (m_SomeUser.empty() &&
      m_AnyUser.Run({}, [this](const ReaderQuery& row) { m_SomeUser = row.Text(0); }) != SQLITE_DONE) {
    m_SomeUser.clear();
  }
  return m_SomeUser;
}

} // namespace Host
