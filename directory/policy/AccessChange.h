#pragma once

#include <vector>

#include "directory/pattern/Solver.h"
#include "directory/policy/AccessRules.h"
#include "directory/Progress.h"
#include "directory/text/Text.h"

namespace AccessDirectory {

/// What becomes of the rights of users who have the same groups together before and the same together after, with
/// methods that it is the same for.
struct AccessChange {
  std::vector<std::string> users;
  AccessRules::GroupSet before;
  AccessRules::GroupSet after;
  std::vector<Perenna::Method_t> methods;
  Answer granted; ///< a target that becomes allowed
  Answer refused; ///< a target that becomes refused
};

/// What tells one policy from another for all targets.
struct AccessChanges {
  std::vector<AccessChange> changes; ///< those with a witness or something unknown
  std::size_t classes = 0;           ///< of users, changed or not

  bool Granted() const; ///< something becomes allowed
  bool Refused() const;
  bool Unknown() const; ///< something could not be found out

  /// {"classes", "granted", "refused", "unknown", "changes": [{"users", "groups_before", "groups_after", "methods",
  /// "granted", "refused"}]}, each answer as `AnswerJson`.
  Json ToJson() const;
};

/// Compares two policies over the solver's patterns. A user whom only one of them has may do nothing by the other.
/// Throws `Failure` (System) when the solver does.
AccessChanges CompareAccess(const AccessRules& before, const AccessRules& after, const Patterns& patterns,
                            Solver& solver, Progress& progress);

/// {"answer": "none"}, {"answer": "witness", "target"} or {"answer": "unknown", "why"}.
Json AnswerJson(const Answer& answer);
/// An array of texts, each as `JsonText` gives it.
Json TextsJson(const std::vector<std::string>& texts);

/// A target that the rules allow and the others do not. What is found is put to the module's matching once more.
Answer FindGain(const Rules& with, const Rules& without, const Patterns& patterns, Solver& solver);

} // namespace AccessDirectory
