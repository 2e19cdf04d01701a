#pragma once

#include <functional>
#include <string>
#include <vector>

#include "directory/lint/Lint.h"

namespace AccessDirectory {

/// The columns that tell a person which row of a section it is, without credentials.
std::vector<std::size_t> TellingColumns(SectionNumber section);

/// "problem" or "note".
const char* SeverityName(const LintKind& kind);

/// How many rows each section has.
SectionCounts CountsOf(const StoredDirectory& stored);

/// Writes findings as JSON, piece by piece, since there may be hundreds of thousands: {"findings": [...], "kinds":
/// [...], "problems", "notes", "rows": {...}, "proofs": {"targets", "filters", "unknown", "left_out"}}, indented, ASCII
/// only. Of a kind the first `of_a_kind` are written, while the numbers count all.
void WriteFindings(const StoredDirectory& stored, const std::vector<Finding>& findings, const FilterProofs& proofs,
                   std::size_t of_a_kind, const std::function<void(const std::string& text)>& write);

} // namespace AccessDirectory
