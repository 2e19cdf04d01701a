#pragma once

#include <string>

#include "directory/pattern/Solver.h"
#include "directory/policy/AccessRules.h"
#include "directory/policy/Sentence.h"
#include "directory/text/Text.h"

namespace AccessDirectory {

/// Whether a sentence holds for all targets.
struct Verdict {
  enum class Kind { True, False, Unknown };

  Kind kind = Kind::True;
  std::size_t users = 0; ///< that the sentence speaks of; of none everything is true
  std::string user;      ///< a counter-example, or whom it is unknown of
  Perenna::Method_t method = Perenna::METH_MAX;
  std::string target; ///< of a counter-example
  std::string why;    ///< it is unknown

  /// {"sentence", "holds": true, false or null, "users", "counter_example": null or {"user_id", "method", "target"},
  /// "why": null or of what is unknown}.
  Json ToJson(const Sentence& sentence) const;
};

/// Proves or refutes a sentence. The patterns are the policy's and the solver's; the sentence's own is added to them. A
/// counter-example has been put to the module's matching once more. Throws `Failure`: of kind Input for a group or a
/// user that there is not, of kind System when the solver does.
Verdict Prove(const Sentence& sentence, const AccessRules& policy, Patterns& patterns, Solver& solver);

} // namespace AccessDirectory
