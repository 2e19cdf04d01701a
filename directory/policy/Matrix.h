#pragma once

#include <string>
#include <vector>

#include "directory/policy/AccessRules.h"
#include "directory/policy/Regions.h"
#include "directory/text/Text.h"

namespace AccessDirectory {

/// Who may do what where: users or groups against methods and regions of all targets.
struct Matrix {
  /// What somebody may do in one region. A method that is in neither list is refused there.
  struct Cell {
    std::size_t region;
    std::vector<Perenna::Method_t> allowed;
    std::vector<Perenna::Method_t> unknown;
  };

  /// Users who have the same groups, or a group by itself, which has no users here.
  struct Subject {
    UserClass who;
    std::vector<Cell> cells; ///< of the regions where anything is not refused, ascending
  };

  Regions regions;
  std::vector<Subject> subjects;

  /// {"complete", "left_out", "regions": [{"target", "patterns", "unknown"}], "subjects": [{"users", "groups", "cells":
  /// [{"region", "allowed", "unknown"}]}]}; a region is named by its place in the list, from 0.
  Json ToJson(const Patterns& patterns) const;
};

enum class MatrixSubjects { Users, Groups };

/// Throws `Failure` (System) when the solver does.
Matrix MakeMatrix(const AccessRules& rules, MatrixSubjects subjects, const Patterns& patterns, Solver& solver,
                  Progress& progress);

} // namespace AccessDirectory
