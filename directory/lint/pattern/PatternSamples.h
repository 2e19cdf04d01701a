#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include "directory/pattern/Solver.h"

namespace AccessDirectory {

/// Targets that patterns match, a few each. They answer most questions sooner than a search: one target that is outside
/// of another pattern shows that this one is not within it. One thread uses an object.
class PatternSamples {
public:
  using Texts = std::vector<std::string>;

  /// Both outlive the object.
  PatternSamples(const Patterns& patterns, const TargetRules& rules) : m_Patterns(patterns), m_Rules(rules) {}

  /// At first what can be guessed from what the pattern says; perhaps nothing.
  const Texts& Of(PatternNumber pattern);
  /// Adds a target that was found to match.
  void Add(PatternNumber pattern, const std::string& target);

private:
  void Guess(PatternNumber pattern, Texts& samples) const;

  const Patterns& m_Patterns;
  const TargetRules& m_Rules;
  std::unordered_map<PatternNumber, Texts> m_Samples;
};

} // namespace AccessDirectory
