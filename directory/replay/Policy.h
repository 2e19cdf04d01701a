#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "PN_HTTP.h"
#include "PN_Regex.h"
#include "directory/FilterEdit.h"
#include "directory/explain/WhoMay.h"
#include "directory/file/Database.h"

namespace AccessDirectory {

/// The memberships and filters of a directory as of one moment, in memory, for judging many requests: a pattern is
/// compiled once, and not tried on a target that cannot have its beginning. Gives the module's answers. What it keeps
/// grows with the directory and, up to a bound, with the requests. One thread uses an object.
class Policy {
public:
  /// Reads the directory. Throws `Failure`.
  explicit Policy(Database& database) : Policy(Snapshot(database), database, nullptr) {}
  /// The same within a snapshot of the caller's, with a filter thought to be there or away; null: as it is.
  Policy(const Snapshot& snapshot, Database& database, const FilterEdit* edit);

  struct Verdict {
    bool allowed = false;
    bool undecided = false;               ///< refused since it is too costly to find out whether `decider` matches
    const GroupFilter* decider = nullptr; ///< the filter that settles it, the object's own; null: none does
  };

  /// What the module would answer. A user whom no group knows is refused. `target` is what is matched.
  Verdict Judge(const std::string& user_id, Perenna::Method_t method, const std::string& target);

private:
  struct Pattern {
    std::unique_ptr<Perenna::RegularExpression> compiled;
    std::string beginning; // with which each match begins, and the text too; empty: not known
  };
  struct Rule {
    GroupFilter filter;
    std::size_t pattern;
  };
  using Rules = std::vector<Rule>;
  /// A group's id as it is compared: a blob equals no text.
  using GroupKey = std::pair<bool, std::string>;
  using GroupIndex = std::uint32_t;

  struct Group {
    std::array<Rules, Perenna::METH_MAX> denials;
    std::array<Rules, Perenna::METH_MAX> grants;
  };
  /// Users with the same groups are one class.
  using Class = std::vector<GroupIndex>;

  GroupIndex IndexOf(const GroupKey& key);
  void ReadFilters(Database& database, const FilterEdit* edit);
  void AddRule(unsigned method, GroupFilter filter, bool is_blob);
  void ReadMemberships(Database& database);
  void Join(const std::string& user_id, Class groups);
  std::size_t PatternOf(const std::string& text);
  Perenna::RegularExpression::Outcome Test(std::size_t pattern, const std::string& target) const;
  Verdict JudgeClass(const Class& groups, Perenna::Method_t method, const std::string& target) const;

  std::vector<Pattern> m_Patterns;
  std::unordered_map<std::string, std::size_t> m_PatternOf;
  std::map<GroupKey, GroupIndex> m_GroupOf;
  std::vector<std::unique_ptr<Group>> m_Groups;
  std::vector<Class> m_Classes;
  std::map<Class, std::size_t> m_ClassOf;
  std::unordered_map<std::string, std::size_t> m_Users; // to their classes
  std::unordered_map<std::string, Verdict> m_Known;     // by class, method and target
};

} // namespace AccessDirectory
