#pragma once

#include <optional>
#include <string>
#include <vector>

#include "PN_HTTP.h"
#include "directory/file/Database.h"
#include "directory/text/Text.h"

namespace AccessDirectory {

/// A filter of a group, for one method.
struct GroupFilter {
  std::string group;
  std::string pattern;
  std::string action;

  Json ToJson() const;
};

/// What a request of one existing user comes to.
struct UserVerdict {
  std::string user_id;
  bool allowed = false;
  GroupFilter decider;                  ///< the filter that settles it, as in an `Explanation`
  bool undecided = false;               ///< refused since it is too costly to find out whether `decider` matches
  std::optional<GroupFilter> overruled; ///< of a refusal: the Allow that would settle it otherwise
};

enum class Verdicts {
  Allowed,
  Refused ///< by a Deny, or in doubt; not those who are refused since nothing allows them
};

/// The users for whom a filter settles the request in that way, by id, as the module would answer for each of them. A
/// pattern is tried once, however many groups have it. Throws `Failure`. What it takes goes with the filters of the
/// method and the memberships.
std::vector<UserVerdict> WhoMay(Database& database, const Perenna::HTTPRequest& request, Verdicts wanted);

/// {"method", "url", "allowed", "total", "users": [{"user_id", "decider"}]}, of refused ones also "undecided" and
/// "overruled": as the tool and the host show it. The first `limit` users are listed, "total" counts all.
Json WhoJson(const Perenna::HTTPRequest& request, Verdicts wanted, const std::vector<UserVerdict>& verdicts,
             std::size_t limit);

} // namespace AccessDirectory
