#pragma once

#include <memory>

#include "directory/pattern/ChildProcess.h"
#include "directory/pattern/Search.h"

namespace AccessDirectory {

/// Answers questions about all targets, each within bounds: a process of its own looks for the answer, and what it
/// does not find in time, or in memory, is unknown. The witness of an answer has been tried with the module's own
/// matching. One thread uses an object.
class Solver {
public:
  /// Both outlive the object; patterns may be added meanwhile.
  Solver(const Patterns& patterns, const TargetRules& rules, const ChildProcess::Limits& limits = {})
      : m_Patterns(patterns), m_Rules(rules), m_Limits(limits) {}

  /// Throws `Failure` (System) when the system starts no process.
  Answer Find(const Question& question);

  const TargetRules& Rules() const noexcept { return m_Rules; }

  /// What the search for answers has taken so far, of all processes together.
  std::chrono::nanoseconds ProcessorTime() const;

private:
  bool IsTrivial(const Question& question) const;
  bool Ask(const Question& question, Answer& answer);
  void Start();
  bool SendNewPatterns();
  ChildProcess::Ending EndProcess();

  const Patterns& m_Patterns;
  const TargetRules& m_Rules;
  ChildProcess::Limits m_Limits;
  std::unique_ptr<ChildProcess> m_Process;
  std::size_t m_Known = 0;            // patterns that the process knows
  bool m_IsFresh = true;              // it has answered nothing, and remembers nothing
  std::chrono::nanoseconds m_Spent{}; // by processes that have ended
  std::vector<bool> m_Skips;          // patterns whose automata are too large
  bool m_Translates = false;          // the process is about to translate this one
  PatternNumber m_Translated = 0;
  int m_Failures = 0;
};

} // namespace AccessDirectory
