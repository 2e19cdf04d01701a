#pragma once

#include <string>
#include <vector>

#include "directory/file/Database.h"
#include "directory/text/Text.h"

namespace AccessDirectory {

/// A filter as it counts among the others of a user, or of a group.
struct EffectiveFilter {
  enum class Standing {
    Applies,
    Overruled, ///< an Allow whose every match a Deny of the same method refuses
    Repeated,  ///< the same filter came before, of this or another group
    InDoubt,   ///< too costly a pattern: whatever it might match is refused
    Never      ///< an action, a method or a pattern that the module does not know
  };

  std::string group;
  std::string method;
  std::string pattern;
  std::string action;
  Standing standing = Standing::Applies;
  std::string why; ///< of an overruled or a repeated one: of which group; of one that never applies: what is wrong
};

// All filters of one user's groups, or of one group, by method; within a method in the order of decision: Deny, Allow,
// what never applies. Overruled are those whose pattern a Deny repeats, or a Deny for every target; what else two
// patterns have in common is not looked at. Throw `Failure`.

std::vector<EffectiveFilter> EffectiveFiltersOfUser(Database& database, const std::string& user_id);
std::vector<EffectiveFilter> EffectiveFiltersOfGroup(Database& database, const std::string& group_id);

/// [{"method", "action", "filter", "group_id", "standing", "why"}]: as the tool shows it.
Json EffectiveFiltersJson(const std::vector<EffectiveFilter>& filters);

/// "applies", "overruled", "repeated", "in-doubt", "never".
const char* StandingText(EffectiveFilter::Standing standing);

} // namespace AccessDirectory
