// Filters: those that never apply, or not as they seem to.

#include "PN_HTTP.h"
#include "directory/lint/Lint.h"
#include "directory/lint/LintKinds.h"
#include "directory/lint/pattern/PatternFindings.h"
#include "directory/text/Vocabulary.h"

namespace AccessDirectory {

namespace {

bool IsMethod(const std::string& name) {
  Perenna::Method_t method = Perenna::METH_MAX;
  return Perenna::StringToMethod(name, method);
}

/// A bit for the method of this name, none for what is no method.
unsigned MethodBit(const std::string& name) {
  Perenna::Method_t method = Perenna::METH_MAX;
  return Perenna::StringToMethod(name, method) ? 1U << method : 0U;
}

bool IsAction(const std::string& name) {
  return name == Allow || name == Deny;
}

} // namespace

std::string Lint::FilterRow::KeyOfDeny() const {
  return method + '\0' + group + '\0' + pattern;
}

std::string Lint::FilterRow::Key() const {
  return KeyOfDeny() + '\0' + action;
}

Lint::FilterRow Lint::ReadFilter(std::size_t row) const {
  return {Text(Filters, row, FilterColumn::Method), Text(Filters, row, FilterColumn::Group),
          Text(Filters, row, FilterColumn::Pattern), Text(Filters, row, FilterColumn::Action)};
}

const Lint::PatternFault& Lint::FaultOf(std::string_view pattern) {
  const auto [entry, is_new] = m_PatternFaults.emplace(pattern, PatternFault());
  if (is_new) {
    PatternFault& fault = entry->second;
    const auto compiled = CompilePattern(std::string(pattern), fault.why);
    fault.stops_decisions = compiled->Test("") == Perenna::RegularExpression::Outcome::Undecided;
  }
  return entry->second;
}

/// Which groups have filters, which can grant anything, and what else one filter has to know of the others.
void Lint::IndexFilters() {
  const StoredRows& rows = In(Filters);
  for (std::size_t row = 0; row < rows.texts.Count(); ++row) {
    const FilterRow filter = ReadFilter(row);
    if (!rows.IsBlob(row, FilterColumn::Group) && !rows.IsBlob(row, FilterColumn::Method)) {
      m_FilteredGroups.insert(rows.texts.At(row, FilterColumn::Group));
      m_FilterKeys.insert(filter.Key());
      if (filter.action == Deny) {
        m_Denials.insert(filter.KeyOfDeny());
      }
    }
  }
  for (std::size_t row = 0; row < rows.texts.Count(); ++row) {
    m_Progress.Advance(1);
    const FilterRow filter = ReadFilter(row);
    Perenna::Method_t method = Perenna::METH_MAX;
    if (rows.blobs[row] == 0 && IsAction(filter.action) && Perenna::StringToMethod(filter.method, method) &&
        FaultOf(rows.texts.At(row, FilterColumn::Pattern)).why.empty()) {
      m_Proofs.Know({filter.group, method, filter.pattern, filter.action == Allow, row});
    }
    if (filter.action == Allow && !rows.IsBlob(row, FilterColumn::Group) && !rows.IsBlob(row, FilterColumn::Method) &&
        IsMethod(filter.method) && FaultOf(rows.texts.At(row, FilterColumn::Pattern)).why.empty()) {
      const std::string_view group = rows.texts.At(row, FilterColumn::Group);
      m_AllowedMethods[group] |= MethodBit(filter.method);
      if (m_Denials.count(filter.KeyOfDeny()) == 0) {
        m_GrantingGroups.insert(group);
      }
    }
  }
  IndexAllowedMethods();
}

/// Which methods some member of a group has an Allow of, by that group or by another.
void Lint::IndexAllowedMethods() {
  const Rows& memberships = In(Memberships).texts;
  std::unordered_map<std::string_view, unsigned> of_user;
  for (std::size_t row = 0; row < memberships.Count(); ++row) {
    const auto granting = m_AllowedMethods.find(memberships.At(row, MembershipColumn::Group));
    if (granting != m_AllowedMethods.end()) {
      of_user[memberships.At(row, MembershipColumn::User)] |= granting->second;
    }
  }
  for (std::size_t row = 0; row < memberships.Count(); ++row) {
    const auto granted = of_user.find(memberships.At(row, MembershipColumn::User));
    m_AllowedToMembers[memberships.At(row, MembershipColumn::Group)] |= granted == of_user.end() ? 0U : granted->second;
  }
}

Mender::Command Lint::DeleteFilter(const FilterRow& filter) const {
  if (filter.method.find(',') != std::string::npos) {
    return std::nullopt; // would be taken for two
  }
  return m_Mender.Run({"filter", "delete"}, {filter.group, filter.action, filter.method, filter.pattern});
}

Mender::Command Lint::AddFilter(const FilterRow& filter) const {
  return m_Mender.Run({"filter", "add"}, {filter.group, filter.action, filter.method, filter.pattern});
}

/// Adds the better filter, unless it is there, and then deletes the other.
Mender::Command Lint::ReplaceFilter(const FilterRow& filter, const FilterRow& better) {
  Mender::Command deletion = DeleteFilter(filter);
  if (!m_FilterKeys.insert(better.Key()).second) {
    return deletion;
  }
  return Mender::Then(AddFilter(better), deletion);
}

/// Adds what keeps the filter from ever applying; false when nothing does.
bool Lint::AddFilterFaults(std::size_t row, const FilterRow& filter) {
  struct Fault {
    const LintKind* kind;
    std::string why;
  };
  std::vector<Fault> faults;
  const bool group_exists = m_Groups.count(filter.group) > 0;
  const PatternFault& pattern_fault = FaultOf(In(Filters).texts.At(row, FilterColumn::Pattern));
  if (!IsMethod(filter.method)) {
    faults.push_back({&LintKinds::FilterMethod, Quoted(filter.method) + " is no HTTP method: no request has it"});
  }
  if (!group_exists) {
    const auto members = m_MembershipsOfGroup.find(filter.group);
    faults.push_back({&LintKinds::FilterGroup,
                      members == m_MembershipsOfGroup.end()
                          ? "there is no such group: the filter applies to nobody, until a group of this id is added"
                          : "there is no such group, and yet the filter applies to the users of " +
                                Count(members->second.size(), "left-over membership") + " in it"});
  }
  if (pattern_fault.stops_decisions) {
    faults.push_back({&LintKinds::FilterCostly,
                      "the pattern is " + pattern_fault.why + ": every request of this method by a member is refused"});
  } else if (!pattern_fault.why.empty()) {
    faults.push_back({&LintKinds::FilterPattern, "the pattern is " + pattern_fault.why + ": it never applies"});
  }
  if (!IsAction(filter.action)) {
    faults.push_back({&LintKinds::FilterAction,
                      Quoted(filter.action) + " is neither Allow nor Deny: the filter neither grants nor refuses"});
  }
  if (faults.empty()) {
    return false;
  }
  if (faults.size() == 1 && faults.front().kind == &LintKinds::FilterPattern) {
    const PatternReading reading = ReadPattern(filter.pattern, filter.action == Allow, Perenna::METH_MAX);
    if (!reading.findings.empty()) { // known to be of another dialect
      AddPatternFindings(row, filter, reading);
      return true;
    }
  }
  const FilterRow better = {SpelledMethod(filter.method), filter.group, filter.pattern, SpelledAction(filter.action)};
  const bool is_meant = group_exists && pattern_fault.why.empty() && IsMethod(better.method) && IsAction(better.action);
  const Mender::Command command = is_meant ? ReplaceFilter(filter, better) : DeleteFilter(filter);
  // Once it is gone, requests that it stops now are decided without it.
  const std::string advice =
      pattern_fault.stops_decisions ? "say it with a cheaper pattern, or delete the filter: " : "";
  for (const Fault& fault : faults) {
    Add(*fault.kind, Filters, row, fault.why, advice + (command ? *command : DeleteRow(Filters, row)));
  }
  return true;
}

void Lint::CheckFilter(std::size_t row) {
  if (AddUnreachable(Filters, row, FilterColumn::Count)) {
    return;
  }
  const FilterRow filter = ReadFilter(row);
  const bool is_new = m_FiltersSeen.insert(filter.Key()).second;
  if (AddFilterFaults(row, filter)) {
    return;
  }
  const Mender::Command deletion = DeleteFilter(filter);
  if (filter.action == Allow && m_Denials.count(filter.KeyOfDeny()) > 0) {
    Add(LintKinds::FilterOverruled, Filters, row,
        "the same group has a Deny of the same method and pattern: this Allow never grants anything",
        deletion ? *deletion : DeleteRow(Filters, row));
  } else if (!is_new) {
    // Deleting deletes both. With a Deny there must be no moment without it.
    const Mender::Command once = filter.action == Deny ? std::nullopt : Mender::Then(deletion, AddFilter(filter));
    Add(LintKinds::FilterRepeated, Filters, row,
        "the same filter stands in an earlier row: this one has no effect, but goes when that one is deleted",
        once ? *once : DeleteRow(Filters, row));
  } else {
    CheckPattern(row, filter);
  }
}

bool Lint::AddIdleDeny(std::size_t row, const FilterRow& filter) {
  const auto granted = m_AllowedToMembers.find(filter.group);
  if (filter.action != Deny || granted == m_AllowedToMembers.end() ||
      (granted->second & MethodBit(filter.method)) != 0) {
    return false;
  }
  AddProven(LintKinds::FilterIdle, row,
            "no group of any member has an Allow of " + filter.method +
                ": this Deny refuses what is refused without it",
            "keep it as a guard against a later Allow, or delete it: ", DeleteFilter(filter));
  return true;
}

void Lint::CheckPattern(std::size_t row, const FilterRow& filter) {
  Perenna::Method_t method = Perenna::METH_MAX;
  static_cast<void>(Perenna::StringToMethod(filter.method, method)); // one of them: it would be a fault else
  PatternReading reading = ReadPattern(filter.pattern, filter.action == Allow, method);
  const bool is_idle = AddIdleDeny(row, filter);
  CheckProofs(row, filter, method, is_idle, reading);
  AddPatternFindings(row, filter, reading);
}

/// One command mends all that can be mended: it is the same for each of the findings.
void Lint::AddPatternFindings(std::size_t row, const FilterRow& filter, const PatternReading& reading) {
  Mender::Command command;
  if (!reading.better.empty()) {
    command = ReplaceFilter(filter, {filter.method, filter.group, reading.better, filter.action});
  }
  for (const PatternFinding& finding : reading.findings) {
    const std::string by_hand = finding.advice.empty() ? "write the pattern anew: " + reading.better : finding.advice;
    Add(*finding.kind, Filters, row, finding.why, finding.advice.empty() && command ? *command : by_hand);
  }
}

} // namespace AccessDirectory
