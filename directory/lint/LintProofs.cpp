// Filters: what holds for them on all targets.

#include <algorithm>

#include "directory/lint/Lint.h"
#include "directory/lint/LintKinds.h"
#include "directory/text/Vocabulary.h"

namespace AccessDirectory {

namespace {

bool Has(const PatternReading& reading, const LintKind& kind) {
  return std::any_of(reading.findings.begin(), reading.findings.end(),
                     [&kind](const PatternFinding& finding) { return finding.kind == &kind; });
}

} // namespace

void Lint::AddProven(const LintKind& kind, std::size_t row, std::string why, const std::string& advice,
                     const Mender::Command& command) {
  Add(kind, Filters, row, std::move(why), advice + (command ? *command : DeleteRow(Filters, row)));
}

void Lint::CheckProofs(std::size_t row, const FilterRow& filter, Perenna::Method_t method, bool is_idle,
                       PatternReading& reading) {
  const FilterProofs::Filter proven = {filter.group, method, filter.pattern, filter.action == Allow, row};
  if (Has(reading, LintKinds::FilterTarget) || !m_Proofs.Begin(proven)) {
    return;
  }
  if (m_Proofs.MatchesNothing()) {
    AddProven(LintKinds::FilterTarget, row, "no request has such a target: none in normal form matches the pattern",
              "write the pattern anew, or delete the filter: ", DeleteFilter(filter));
  } else {
    ProveUse(row, filter, is_idle);
    ProveQuery(row, filter);
    ProveEnd(reading);
  }
  m_Proofs.End();
}

/// Whether the filter makes a difference.
void Lint::ProveUse(std::size_t row, const FilterRow& filter, bool is_idle) {
  FilterProofs::Proven proven;
  if (filter.action == Allow && (proven = m_Proofs.Overruled()).has_value()) {
    AddProven(LintKinds::FilterOverruled, row,
              "Deny filters of each member's groups refuse whatever it matches: " + Quoted(proven->target) +
                  ", for instance, by " + Quoted(proven->other) + "; this Allow never grants anything",
              "", DeleteFilter(filter));
  } else if (filter.action == Deny && !is_idle && (proven = m_Proofs.Idle()).has_value()) {
    AddProven(LintKinds::FilterIdle, row,
              "no Allow of any member meets what it matches, " + Quoted(proven->target) +
                  " for instance: this Deny refuses what is refused without it",
              "keep it as a guard against a later Allow, or delete it: ", DeleteFilter(filter));
  } else if (!is_idle && (proven = m_Proofs.Contained()).has_value()) {
    AddProven(LintKinds::FilterContained, row,
              "the group's " + filter.action + " of " + filter.method + " and " + Quoted(proven->other) +
                  " matches all that it matches, " + Quoted(proven->target) +
                  " for instance: this filter makes no difference",
              "", DeleteFilter(filter));
  }
}

/// Whether queries decide where paths should.
void Lint::ProveQuery(std::size_t row, const FilterRow& filter) {
  if (filter.action == Deny) {
    if (const FilterProofs::Proven evaded = m_Proofs.EvadedByQuery()) {
      Mender::Command command;
      if (!evaded->other.empty()) {
        command = ReplaceFilter(filter, {filter.method, filter.group, evaded->other, filter.action});
      }
      Add(LintKinds::FilterQuery, Filters, row,
          "a query evades this Deny: it matches the path of " + Quoted(evaded->target) + ", but not with the query",
          command ? *command : "let the pattern end with \"([?]|$)\" where it ends with the path");
      return;
    }
  }
  if (const FilterProofs::Proven reached = m_Proofs.ReachesQuery()) {
    Add(LintKinds::FilterQuery, Filters, row,
        "the pattern reaches into the query: it matches " + Quoted(reached->target) + ", but not its path",
        "begin the pattern with \"^\", and say \"[^?]\" instead of \".\" where only the path is meant");
  }
}

/// Has the module confirm that a longer name matches.
void Lint::ProveEnd(PatternReading& reading) {
  if (reading.ended.empty()) {
    return;
  }
  const Answer longer = m_Proofs.Beyond(reading.ended);
  auto& findings = reading.findings;
  for (auto finding = findings.begin(); finding != findings.end(); ++finding) {
    if (finding->kind == &LintKinds::FilterEnd && longer.kind == Answer::Kind::Witness) {
      finding->why = WhyNamesMustEnd("it matches " + Quoted(longer.text) + " too");
    } else if (finding->kind == &LintKinds::FilterEnd && longer.kind == Answer::Kind::None) {
      findings.erase(finding);
      return;
    }
  }
}

} // namespace AccessDirectory
