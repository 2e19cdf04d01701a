#include "directory/lint/FindingsText.h"

#include <algorithm>
#include <map>

namespace AccessDirectory {

namespace {

Json FindingJson(const StoredDirectory& stored, const Finding& finding) {
  if (finding.section == SectionCount) {
    return {{"kind", finding.kind->name},
            {"severity", SeverityName(*finding.kind)},
            {"table", nullptr},
            {"rowid", nullptr},
            {"row", nullptr},
            {"why", finding.why},
            {"mend", finding.mend}};
  }
  Json row = Json::object();
  for (const std::size_t column : TellingColumns(finding.section)) {
    row[Sections.at(finding.section).columns[column]] = JsonText(stored.at(finding.section).Text(finding.row, column));
  }
  return {{"kind", finding.kind->name},
          {"severity", SeverityName(*finding.kind)},
          {"table", Sections.at(finding.section).table},
          {"rowid", stored.at(finding.section).rowids[finding.row]},
          {"row", std::move(row)},
          {"why", finding.why},
          {"mend", finding.mend}};
}

} // namespace

std::vector<std::size_t> TellingColumns(SectionNumber section) {
  switch (section) {
  case Filters:
    return {FilterColumn::Group, FilterColumn::Action, FilterColumn::Method, FilterColumn::Pattern};
  case Memberships:
    return {MembershipColumn::Group, MembershipColumn::User};
  default:
    return {0};
  }
}

const char* SeverityName(const LintKind& kind) {
  return kind.severity == Severity::Problem ? "problem" : "note";
}

SectionCounts CountsOf(const StoredDirectory& stored) {
  SectionCounts counts{};
  std::transform(stored.begin(), stored.end(), counts.begin(),
                 [](const StoredRows& rows) { return rows.texts.Count(); });
  return counts;
}

void WriteFindings(const StoredDirectory& stored, const std::vector<Finding>& findings, const FilterProofs& proofs,
                   std::size_t of_a_kind, const std::function<void(const std::string& text)>& write) {
  std::map<const LintKind*, std::size_t> written;
  write("{\n  \"findings\": [");
  const char* separator = "\n";
  for (const Finding& finding : findings) {
    if (++written[finding.kind] > of_a_kind) {
      continue;
    }
    std::string text = FindingJson(stored, finding).dump(2, ' ', true);
    for (std::size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n', end + 1)) {
      text.insert(end + 1, "    ");
    }
    write(separator + ("    " + text));
    separator = ",\n";
  }
  Json kinds = Json::array();
  for (const FindingsOfKind& kind : ByKind(findings)) {
    kinds.push_back(
        {{"kind", kind.kind->name}, {"severity", SeverityName(*kind.kind)}, {"count", kind.findings.size()}});
  }
  const auto problems =
      static_cast<std::size_t>(std::count_if(findings.begin(), findings.end(), [](const Finding& finding) {
        return finding.kind->severity == Severity::Problem;
      }));
  const Json counts = {{"kinds", std::move(kinds)},
                       {"problems", problems},
                       {"notes", findings.size() - problems},
                       {"rows", CountsJson(CountsOf(stored))},
                       {"proofs",
                        {{"targets", TargetsJson(proofs.Targets())},
                         {"filters", proofs.Counted().filters},
                         {"unknown", proofs.Counted().unknown},
                         {"left_out", proofs.Counted().left_out}}}};
  const std::string rest = counts.dump(2, ' ', true);
  write((findings.empty() || of_a_kind == 0 ? "],\n" : "\n  ],\n") + rest.substr(rest.find('\n') + 1) + '\n');
}

} // namespace AccessDirectory
