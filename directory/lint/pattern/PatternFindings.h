#pragma once

#include <string>
#include <vector>

#include "PN_HTTP.h"
#include "directory/lint/LintKinds.h"

namespace AccessDirectory {

/// Something that a pattern says and its writer may not have meant.
struct PatternFinding {
  const LintKind* kind;
  std::string why;
  std::string advice; ///< what to do; empty where `PatternReading::better` does it
};

struct PatternReading {
  std::vector<PatternFinding> findings; ///< of a kind at most one with advice and one without
  std::string better; ///< the pattern with everything mended that has no advice; empty where nothing has
  std::string ended;  ///< the pattern with names that end where they seem to; empty where that is no finding
};

/// Why a name without an end is a finding; `longer` says what else the pattern matches, for instance.
std::string WhyNamesMustEnd(const std::string& longer);

/// Reads the pattern of a filter of `method` that grants (`allows`) or refuses. A better pattern never grants more than
/// the pattern does, unless that grants nothing as it stands; one that refuses goes on refusing what it refuses, except
/// where what it says ("\d") and what it is taken for (the letter "d") have nothing in common. Clears the log.
PatternReading ReadPattern(const std::string& pattern, bool allows, Perenna::Method_t method);

} // namespace AccessDirectory
