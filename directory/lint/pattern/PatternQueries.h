#pragma once

#include <string>

namespace AccessDirectory {

/// What a pattern has to do with the query of a target, as far as its text says.
struct PatternQueries {
  /// A match can go on over the "?", though the pattern does not name it: only then does a query alone make it match.
  bool may_reach = false;
  /// It looks at the end of the target: only then does a query keep it from matching.
  bool may_be_evaded = false;
  std::string better; ///< the pattern with "([?]|$)" for each "$"; empty when there is none
  /// The better one plainly matches all targets whose path, or which as a whole, the pattern matches.
  bool is_better = false;
};

PatternQueries ReadPatternQueries(const std::string& pattern);

} // namespace AccessDirectory
