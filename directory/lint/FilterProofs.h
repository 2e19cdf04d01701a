#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "directory/lint/pattern/PatternSamples.h"
#include "directory/policy/AccessRules.h"

namespace AccessDirectory {

/// What holds for one filter on all targets, in the directory that it is in. What cannot be found out, or not within
/// the budget, is not claimed. One thread uses an object.
class FilterProofs {
public:
  /// As a filter stands in its row, with a method and an action that count and a pattern that can match.
  struct Filter {
    std::string group;
    Perenna::Method_t method;
    std::string pattern;
    bool allows;
    std::size_t row;
  };

  /// What shows it. Both have been put to the module's matching.
  struct Proof {
    std::string target; ///< that the filter matches
    std::string other;  ///< the pattern of another filter that it is about; empty where none is
  };
  using Proven = std::optional<Proof>;

  struct Counts {
    std::size_t filters = 0;  ///< that were to be looked at
    std::size_t unknown = 0;  ///< about which something could not be found out
    std::size_t left_out = 0; ///< when the budget was spent
  };

  /// The rules are copied. The budget is processor time of this thread and of the search for answers.
  FilterProofs(const StoredDirectory& stored, TargetRules rules, std::chrono::milliseconds budget);

  /// Tells of a filter that others may be compared with, in the order of the rows, before anything is asked.
  void Know(const Filter& filter);

  /// Begins with one filter, which the calls below are about; false when nothing can be asked about it.
  bool Begin(const Filter& filter);
  void End();

  /// No target matches the pattern.
  bool MatchesNothing();
  /// Of an Allow: whatever it matches, Deny filters of every member's groups refuse; the other is one of them.
  Proven Overruled();
  /// Of a Deny: whatever it matches, no Allow of any member's groups would grant.
  Proven Idle();
  /// Another filter of the same group, method and action matches all that it matches; of two that match the same, the
  /// earlier is the other.
  Proven Contained();
  /// It matches targets whose path it does not match: their queries make it match.
  Proven ReachesQuery();
  /// It matches targets' paths, but not the targets: their queries keep it from matching. The other is what may stand
  /// in its place, a pattern that matches all of those, and whatever this one matches.
  Proven EvadedByQuery();
  /// It matches what `narrower` does not.
  Answer Beyond(const std::string& narrower);

  const Counts& Counted() const noexcept { return m_Counts; }
  const TargetRules& Targets() const noexcept { return m_Rules; }

private:
  struct Neighbour { ///< a pattern of the same group, method and action
    PatternNumber pattern;
    std::size_t row; ///< the first
  };
  /// By what the patterns begin with, ascending.
  using Neighbours = std::multimap<std::string, Neighbour>;

  static std::string KeyOf(const Filter& filter);
  const Rules& RulesFor(std::size_t users);
  const std::vector<std::size_t>& Members();
  std::chrono::nanoseconds Spent() const;
  bool IsSpent();
  Answer Ask(const Question& question);
  /// Whether it was found that there is no such target.
  bool IsNone(const Question& question);
  bool IsContainedIn(const Neighbour& other);
  bool MeetsAnAllow(PatternNumber allow);
  Answer FindEvasion();
  Proven WithSample(const std::string& other = {});
  Question::Term Whole() const { return {m_Pattern, false}; }
  Question::Term OnPath() const { return {m_Pattern, true}; }

  TargetRules m_Rules;
  Patterns m_Patterns;
  AccessRules m_Policy;
  Solver m_Solver;
  PatternSamples m_Samples;
  std::vector<UserClass> m_Classes;
  std::unordered_map<std::string, std::vector<std::size_t>> m_ClassesOfGroup;
  std::map<std::pair<std::size_t, Perenna::Method_t>, Rules> m_RulesOfClass;
  std::unordered_map<std::string, Neighbours> m_Neighbours;
  std::unordered_map<PatternNumber, Proven> m_Reaching;
  std::chrono::nanoseconds m_Budget;
  std::chrono::nanoseconds m_Begin;
  Counts m_Counts;

  const Filter* m_Filter = nullptr; // that is being looked at
  PatternNumber m_Pattern = 0;
  bool m_IsUnknown = false;
};

} // namespace AccessDirectory
