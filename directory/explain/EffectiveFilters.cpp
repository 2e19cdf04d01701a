#include "directory/explain/EffectiveFilters.h"

#include <algorithm>
#include <array>
#include <map>
#include <tuple>
#include <utility>

#include "directory/text/Vocabulary.h"

namespace AccessDirectory {

namespace {

using Standing = EffectiveFilter::Standing;

constexpr const char* Columns = "SELECT CAST(group_id AS TEXT) AS group_id, CAST(method AS TEXT) AS method, "
                                "CAST(filter AS TEXT) AS filter, CAST(action AS TEXT) AS action, "
                                "typeof(method) = 'blob' AS is_blob FROM filters WHERE ";

// Every target begins with "/".
constexpr std::array<const char*, 8> ForEveryTarget = {"^/", "/", "^", ".*", "^.*", "^.*$", "^/.*", "^/.*$"};

bool IsForEveryTarget(const std::string& pattern) {
  return std::find(ForEveryTarget.begin(), ForEveryTarget.end(), pattern) != ForEveryTarget.end();
}

/// What one pattern can do, found out once.
struct PatternFault {
  std::string text; ///< empty: it can match
  bool is_costly = false;
};

class Judgement {
public:
  /// What is wrong with the filter by itself.
  void JudgeAlone(EffectiveFilter& filter, bool method_is_blob) {
    const auto never = [&filter](std::string why) {
      filter.standing = Standing::Never;
      filter.why = std::move(why);
    };
    Perenna::Method_t method = Perenna::METH_MAX;
    if (filter.action != Allow && filter.action != Deny) {
      return never("the action is neither Allow nor Deny");
    }
    if (method_is_blob || !Perenna::StringToMethod(filter.method, method)) {
      return never("no request has this method");
    }
    if (const PatternFault& fault = FaultOf(filter.pattern); !fault.text.empty()) {
      never("the pattern is " + fault.text);
      filter.standing = fault.is_costly ? Standing::InDoubt : Standing::Never;
    }
  }

  /// What the filters before it leave of it.
  void JudgeAmongOthers(EffectiveFilter& filter) {
    if (filter.standing == Standing::Never) {
      return;
    }
    if (filter.action == Allow) {
      for (const std::string& pattern : {filter.pattern, std::string()}) {
        if (const auto deny = m_Denies.find({filter.method, pattern}); deny != m_Denies.end()) {
          filter.standing = Standing::Overruled;
          filter.why = "by a Deny of group " + Quoted(deny->second);
          return;
        }
      }
    }
    const auto [first, is_new] =
        m_Seen.emplace(std::make_tuple(filter.method, filter.action, filter.pattern), filter.group);
    if (!is_new && filter.standing == Standing::Applies) {
      filter.standing = Standing::Repeated;
      filter.why = "is a filter of group " + Quoted(first->second) + " already";
    }
    if (filter.action == Deny && filter.standing == Standing::Applies) {
      m_Denies.emplace(std::make_pair(filter.method, filter.pattern), filter.group);
      if (IsForEveryTarget(filter.pattern)) {
        m_Denies.emplace(std::make_pair(filter.method, std::string()),
                         filter.group); // an empty pattern matches nothing
      }
    }
  }

private:
  const PatternFault& FaultOf(const std::string& pattern) {
    const auto known = m_Faults.find(pattern);
    if (known != m_Faults.end()) {
      return known->second;
    }
    PatternFault fault;
    const auto compiled = CompilePattern(pattern, fault.text);
    fault.is_costly = compiled != nullptr && compiled->Test("") == Perenna::RegularExpression::Outcome::Undecided;
    return m_Faults.emplace(pattern, std::move(fault)).first->second;
  }

  std::map<std::string, PatternFault> m_Faults;
  std::map<std::tuple<std::string, std::string, std::string>, std::string> m_Seen; // the first one's group
  std::map<std::pair<std::string, std::string>, std::string> m_Denies;
};

int Rank(const EffectiveFilter& filter) {
  return filter.standing == Standing::Never ? 2 : filter.action == Deny ? 0 : 1;
}

std::vector<EffectiveFilter> Judge(Database& database, const std::string& condition, const std::string& argument) {
  std::vector<EffectiveFilter> filters;
  Judgement judgement;
  Statement(database, Columns + condition + " ORDER BY filters.group_id, filters.rowid")
      .ForEach({argument}, [&](const Perenna::PListDict& row) {
        EffectiveFilter& filter = filters.emplace_back();
        filter.group = Field(row, "group_id");
        filter.method = Field(row, "method");
        filter.pattern = Field(row, "filter");
        filter.action = Field(row, "action");
        judgement.JudgeAlone(filter, Field(row, "is_blob") == "1");
      });
  std::stable_sort(filters.begin(), filters.end(), [](const EffectiveFilter& left, const EffectiveFilter& right) {
    return left.method != right.method ? left.method < right.method : Rank(left) < Rank(right);
  });
  for (EffectiveFilter& filter : filters) {
    judgement.JudgeAmongOthers(filter);
  }
  return filters;
}

} // namespace

std::vector<EffectiveFilter> EffectiveFiltersOfUser(Database& database, const std::string& user_id) {
  return Judge(database, "group_id IN (SELECT group_id FROM groupusers WHERE user_id = ?)", user_id);
}

std::vector<EffectiveFilter> EffectiveFiltersOfGroup(Database& database, const std::string& group_id) {
  return Judge(database, "group_id = ?", group_id);
}

const char* StandingText(Standing standing) {
  switch (standing) {
  case Standing::Applies:
    return "applies";
  case Standing::Overruled:
    return "overruled";
  case Standing::Repeated:
    return "repeated";
  case Standing::InDoubt:
    return "in-doubt";
  case Standing::Never:
    break;
  }
  return "never";
}

Json EffectiveFiltersJson(const std::vector<EffectiveFilter>& filters) {
  Json rows = Json::array();
  for (const EffectiveFilter& filter : filters) {
    rows.push_back({{"method", JsonText(filter.method)},
                    {"action", JsonText(filter.action)},
                    {"filter", JsonText(filter.pattern)},
                    {"group_id", JsonText(filter.group)},
                    {"standing", StandingText(filter.standing)},
                    {"why", filter.why}});
  }
  return rows;
}

} // namespace AccessDirectory
