#pragma once

#include <string>
#include <vector>

#include "directory/pattern/Solver.h"
#include "directory/Progress.h"

namespace AccessDirectory {

/// Targets that the same patterns match. Regions have no target in common, and together they are all targets.
struct Region {
  std::string witness;
  std::vector<PatternNumber> matched; ///< ascending
  std::vector<PatternNumber> unknown; ///< patterns that may match a part of it, ascending
};

struct Regions {
  std::vector<Region> regions;
  std::size_t left_out = 0; ///< patterns that would have cut some region, if there were not too many already

  /// Whether some region has a pattern that may match a part of it.
  bool IsComplete() const;
};

constexpr std::size_t MaximumRegions = 1000;

/// Cuts all targets into the regions of these patterns, at most so many. Costly patterns are passed over, since
/// whatever they match is refused. Throws `Failure` (System) when the solver does.
Regions CutIntoRegions(const std::vector<PatternNumber>& wanted, const Patterns& patterns, Solver& solver,
                       Progress& progress, std::size_t maximum = MaximumRegions);

} // namespace AccessDirectory
