#include "tool/command/Commands.h"

#include <algorithm>
#include <iostream>
#include <memory>

#include "directory/lint/FindingsText.h"
#include "directory/lint/Lint.h"
#include "tool/DirectoryNames.h"
#include "tool/command/question/Proofs.h"
#include "tool/terminal/ProgressBar.h"
#include "tool/terminal/Table.h"

namespace Tool {

namespace {

constexpr std::size_t BarRows = 20000;  // a directory of so many takes long enough for a progress bar
constexpr std::size_t ShownOfAKind = 3; // of more, people see so many and the number of the rest

struct LintOptions {
  bool no_notes = false;
  bool all = false;
  unsigned proof_seconds = 2;
  std::string target;
};

/// People learn what was not looked into.
void PrintGaps(const FilterProofs::Counts& counts, const LintOptions& options) {
  if (options.proof_seconds != 0 && counts.left_out > 0) {
    std::cerr << "perenna-access: proofs left out " << counts.left_out << " of " << Count(counts.filters, "filter")
              << " after " << options.proof_seconds << " s; --proof-time SECONDS gives them more\n";
  }
  if (counts.unknown > 0) {
    std::cerr << "perenna-access: what " << Count(counts.unknown, "filter") << (counts.unknown == 1 ? " does" : " do")
              << " on all targets could not be found out\n";
  }
}

/// What to look at, and how much of it there is.
class Report {
public:
  Report(const std::string& file, const StoredDirectory& stored, std::vector<Finding> findings)
      : m_File(Shown(file)), m_Stored(stored), m_Findings(std::move(findings)), m_Kinds(ByKind(m_Findings)),
        m_Rows(CountsOf(stored)) {
    const auto problems = std::count_if(m_Findings.begin(), m_Findings.end(), IsProblem);
    m_Problems = static_cast<std::size_t>(problems);
  }

  /// Kind by kind. What a thousand rows share takes a few lines, unless `all` are wanted.
  void Print(bool all) const {
    for (const FindingsOfKind& kind : m_Kinds) {
      if (all || kind.findings.size() <= ShownOfAKind) {
        for (const std::size_t number : kind.findings) {
          PrintOne(m_Findings[number]);
        }
      } else {
        PrintSome(kind);
      }
    }
    const std::string counted = m_Findings.empty() ? "No findings" : Counts();
    std::cout << counted << " in " << CountsText(m_Rows) << ".\n";
  }

private:
  static bool IsProblem(const Finding& finding) { return finding.kind->severity == Severity::Problem; }
  static std::string Heading(const LintKind& kind) {
    return InColour(SeverityName(kind), kind.severity == Severity::Problem ? Colour::Red : Colour::Dim) + "  " +
           InColour(kind.name, Colour::Bold) + "  ";
  }

  void PrintOne(const Finding& finding) const {
    std::cout << Heading(*finding.kind) << Place(finding) << '\n';
    if (finding.section != SectionCount) {
      std::cout << "  Row   " << RowText(finding) << '\n';
    }
    std::cout << "  Why   " << finding.why << '\n' << "  Mend  " << finding.mend << "\n\n";
  }

  void PrintSome(const FindingsOfKind& kind) const {
    std::cout << Heading(*kind.kind) << Count(kind.findings.size(), "row") << '\n';
    std::string why;
    for (std::size_t i = 0; i < ShownOfAKind; ++i) {
      const Finding& finding = m_Findings[kind.findings[i]];
      if (finding.why != why) { // rows that share a reason stand below it
        why = finding.why;
        std::cout << "  Why   " << why << '\n';
      }
      std::cout << "  Row   " << RowText(finding) << '\n' << "  Mend  " << finding.mend << '\n';
    }
    std::cout << "  and " << kind.findings.size() - ShownOfAKind << " more, which --all shows\n\n";
  }

  std::string Place(const Finding& finding) const {
    return finding.section == SectionCount
               ? m_File
               : std::string(Sections.at(finding.section).table) + ", rowid " + std::to_string(RowId(finding));
  }

  long long RowId(const Finding& finding) const { return m_Stored.at(finding.section).rowids[finding.row]; }

  std::string RowText(const Finding& finding) const {
    std::string text;
    for (const std::size_t column : TellingColumns(finding.section)) {
      text += (text.empty() ? "" : ", ") + Sections.at(finding.section).columns[column] + " \"" +
              Shown(m_Stored.at(finding.section).Text(finding.row, column), Backslash::Kept) + '"';
    }
    return text;
  }

  std::string Counts() const {
    return Count(m_Problems, "problem") + " and " + Count(m_Findings.size() - m_Problems, "note");
  }

  std::string m_File;
  const StoredDirectory& m_Stored;
  std::vector<Finding> m_Findings;
  std::vector<FindingsOfKind> m_Kinds;
  SectionCounts m_Rows{};
  std::size_t m_Problems = 0;
};

ExitStatus RunLint(const Context& context, const LintOptions& options) {
  const std::string file = context.DatabaseFile();
  StoredDirectory stored = [&file] {
    Database database(file, Database::Access::Read); // closed before the work begins: nobody waits for that
    return ReadStoredDirectory(database);
  }();
  const Mender mender(file, context.DatabaseArguments());
  FilterProofs proofs(stored, RulesFor(context, options.target), std::chrono::seconds(options.proof_seconds));
  std::vector<Finding> findings = LintFile(file);
  {
    ProgressBar progress;
    if (stored[Users].texts.Count() + stored[Filters].texts.Count() > BarRows) {
      progress.Show();
    }
    std::vector<Finding> of_rows = Lint(stored, mender, proofs, progress).Run();
    findings.insert(findings.end(), std::make_move_iterator(of_rows.begin()), std::make_move_iterator(of_rows.end()));
  }
  if (options.no_notes) {
    const auto is_note = [](const Finding& finding) { return finding.kind->severity == Severity::Note; };
    findings.erase(std::remove_if(findings.begin(), findings.end(), is_note), findings.end());
  }
  const bool is_empty = findings.empty();
  if (context.WantsJson()) {
    WriteFindings(stored, findings, proofs, findings.size(), [](const std::string& text) { std::cout << text; });
  } else {
    const Report report(file, stored, std::move(findings));
    report.Print(options.all);
    PrintGaps(proofs.Counted(), options);
  }
  return is_empty ? ExitStatus::Done : ExitStatus::Refused;
}

} // namespace

void AddLintCommand(CLI::App& app, Context& context) {
  CLI::App& lint = AddCommand(app, "lint",
                              "Look for rows that cannot do what they say, or do more than they seem to\n"
                              "Each is shown with the reason and with what mends it; of many of one kind, three. What "
                              "is said of filters on all "
                              "targets is proven, within --proof-time. Exit status 1: there are findings.",
                              "perenna-access lint\n"
                              "  perenna-access lint --no-notes --json");
  auto options = std::make_shared<LintOptions>();
  lint.add_flag("--no-notes", options->no_notes, "Show problems only, not what is merely worth a look");
  lint.add_flag("--all", options->all, "Show every finding, also of a kind that there are many of; JSON always does");
  lint.add_option("--proof-time", options->proof_seconds,
                  "Seconds of processor time for proofs about filters, 2 unless given; 0 for none")
      ->type_name("SECONDS")
      ->check(CLI::Range(0U, 86400U));
  AddTargetOption(lint, options->target);
  context.OnRun(lint, [&context, options] { return RunLint(context, *options); });
}

} // namespace Tool
