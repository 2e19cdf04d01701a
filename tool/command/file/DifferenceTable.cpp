#include "tool/command/file/DifferenceTable.h"

#include "tool/terminal/Table.h"

namespace Tool {

namespace {

/// A mark, the columns of the key and, where entries have more, what changed of them.
const std::array<std::vector<std::string>, SectionCount> Headings = {{
    {" ", "USER", "CHANGE"},
    {" ", "GROUP", "CHANGE"},
    {" ", "GROUP", "USER"},
    {" ", "METHOD", "GROUP", "PATTERN", "ACTION"},
}};

std::string ShownCell(const Section& section, const Rows& rows, std::size_t row, std::size_t column) {
  const bool pattern = &section == &Sections[Filters] && column == FilterColumn::Pattern;
  return Shown(std::string(rows.At(row, column)), pattern ? Backslash::Kept : Backslash::Doubled);
}

std::string QuotedCell(const Rows& rows, std::size_t row, std::size_t column) {
  return Quoted(std::string(rows.At(row, column)));
}

/// What a row holds beside its key.
std::string Details(const Section& section, const Rows& rows, std::size_t row) {
  std::string details;
  for (std::size_t column = section.keys; column < section.columns.size(); ++column) {
    if (!section.IsSecret(column)) {
      details += (details.empty() ? "" : ", ") + section.columns[column] + ' ' + QuotedCell(rows, row, column);
    }
  }
  return details;
}

void PrintSection(std::ostream& out, const DirectoryDifference& all, std::size_t number) {
  const Section& section = Sections.at(number);
  const DirectoryDifference::SectionDifference& difference = all.Of(number);
  out << section.name << ": " << difference.added.size() << " added, " << difference.removed.size() << " removed, ";
  if (section.HasDetails()) {
    out << difference.changed.size() << " changed, ";
  }
  out << difference.unchanged << " unchanged\n";

  Table table(Headings.at(number));
  const auto add = [&](Cell mark, const Rows& rows, std::size_t row, const std::string& details) {
    std::vector<Cell> cells = {std::move(mark)};
    for (std::size_t column = 0; column < section.keys; ++column) {
      cells.emplace_back(ShownCell(section, rows, row, column));
    }
    if (section.HasDetails()) {
      cells.emplace_back(details);
    }
    table.Add(std::move(cells));
  };
  const Rows& before = all.Before(number);
  const Rows& after = all.After(number);
  for (const std::size_t row : difference.added) {
    add(Cell("+", Colour::Green), after, row, Details(section, after, row));
  }
  for (const std::size_t row : difference.removed) {
    add(Cell("-", Colour::Red), before, row, Details(section, before, row));
  }
  for (const auto& [old_row, new_row] : difference.changed) {
    std::string details;
    for (std::size_t column = section.keys; column < section.columns.size(); ++column) {
      if (before.At(old_row, column) != after.At(new_row, column)) {
        details += details.empty() ? "" : ", ";
        details += section.IsSecret(column) ? "credential changed"
                                            : section.columns[column] + ' ' + QuotedCell(before, old_row, column) +
                                                  " -> " + QuotedCell(after, new_row, column);
      }
    }
    add(Cell("~"), after, new_row, details);
  }
  if (!table.Empty()) {
    table.Print(out);
  }
}

} // namespace

void PrintDifference(std::ostream& out, const DirectoryDifference& difference) {
  for (std::size_t number = 0; number < SectionCount; ++number) {
    PrintSection(out, difference, number);
  }
}

} // namespace Tool
