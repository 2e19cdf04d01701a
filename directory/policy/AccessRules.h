#pragma once

#include <array>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "PN_HTTP.h"
#include "directory/Directory.h"
#include "directory/StoredDirectory.h"
#include "directory/pattern/Patterns.h"

namespace AccessDirectory {

/// What decides about the requests of some users with one method. Two that are equal decide alike.
struct Rules {
  std::vector<PatternNumber> allows; ///< ascending
  std::vector<PatternNumber> denies; ///< ascending
  bool in_doubt = false;             ///< a pattern is too costly to match: every request is refused

  bool operator<(const Rules& other) const {
    return std::tie(in_doubt, allows, denies) < std::tie(other.in_doubt, other.allows, other.denies);
  }
  bool operator==(const Rules& other) const {
    return in_doubt == other.in_doubt && allows == other.allows && denies == other.denies;
  }

  /// What the module would decide about a request for the target.
  bool Allow(const Patterns& patterns, const std::string& target) const;
};

/// What a directory decides, whatever the target: the users, their groups, and the groups' filters, as the module takes
/// them. What cannot take part in a decision is left out. Immutable.
class AccessRules {
public:
  /// Ids of groups, ascending. One that is stored as a blob, which equals no text, has a NUL before it.
  using GroupSet = std::vector<std::string>;
  using ByUser = std::map<std::string, GroupSet>;

  AccessRules(const StoredDirectory& stored, Patterns& patterns);
  AccessRules(const Directory& directory, Patterns& patterns);

  /// The users that there are, with their groups.
  const ByUser& Users() const noexcept { return m_Users; }
  bool HasGroup(const std::string& group) const { return m_GroupIds.count(group) > 0; }
  /// The groups that there are, by id.
  std::vector<std::string> Groups() const;

  /// What counts for a member of just these groups.
  Rules RulesOf(const GroupSet& groups, Perenna::Method_t method) const;

private:
  template <class Source> void Read(const Source& source, Patterns& patterns);

  ByUser m_Users;
  std::map<std::string, std::array<Rules, Perenna::METH_MAX>> m_Filters; // by group
  std::set<std::string> m_GroupIds;
};

/// Users who have the same groups.
struct UserClass {
  AccessRules::GroupSet groups;
  std::vector<std::string> users; ///< ascending, at least one
};

std::vector<UserClass> ClassesOf(const AccessRules& policy);

/// "alice, bob and 3 more".
std::string UsersText(const std::vector<std::string>& users);
/// "staff, writers"; "no group".
std::string GroupsText(const AccessRules::GroupSet& groups);

} // namespace AccessDirectory
