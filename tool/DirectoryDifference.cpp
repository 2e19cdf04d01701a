#include "DirectoryDifference.h"

#include <algorithm>
#include <numeric>

#include "Table.h"

namespace Tool {

namespace {

/// A mark, the columns of the key and, where entries have more, what changed of them.
const std::array<std::vector<std::string>, SectionCount> Headings = {{
    {" ", "USER", "CHANGE"},
    {" ", "GROUP", "CHANGE"},
    {" ", "GROUP", "USER"},
    {" ", "METHOD", "GROUP", "PATTERN", "ACTION"},
}};

/// Whether entries have columns beside their keys, which can change.
bool HasDetails(const Section& section) {
  return section.keys < section.columns.size();
}

bool IsSecret(const Section& section, std::size_t column) {
  return &section == &Sections[Users] && column == UserColumn::Value;
}

/// The rows in ascending order of their first `keys` columns.
std::vector<std::size_t> Sorted(const Rows& rows, std::size_t keys) {
  std::vector<std::size_t> order(rows.Count());
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::stable_sort(order.begin(), order.end(), [&rows, keys](std::size_t left, std::size_t right) {
    return Compare(rows, left, rows, right, keys) < 0;
  });
  return order;
}

std::string ShownCell(const Section& section, const Rows& rows, std::size_t row, std::size_t column) {
  const bool pattern = &section == &Sections[Filters] && column == FilterColumn::Pattern;
  return Shown(std::string(rows.At(row, column)), pattern ? Backslash::Kept : Backslash::Doubled);
}

std::string QuotedCell(const Rows& rows, std::size_t row, std::size_t column) {
  return Quoted(std::string(rows.At(row, column)));
}

Json CellJson(const Rows& rows, std::size_t row, std::size_t column) {
  return JsonText(std::string(rows.At(row, column)));
}

/// The first `columns` of a row, without a secret.
Json RowJson(const Section& section, const Rows& rows, std::size_t row, std::size_t columns) {
  Json json = Json::object();
  for (std::size_t column = 0; column < columns; ++column) {
    if (!IsSecret(section, column)) {
      json[section.columns[column]] = CellJson(rows, row, column);
    }
  }
  return json;
}

/// What a row holds beside its key.
std::string Details(const Section& section, const Rows& rows, std::size_t row) {
  std::string details;
  for (std::size_t column = section.keys; column < section.columns.size(); ++column) {
    if (!IsSecret(section, column)) {
      details += (details.empty() ? "" : ", ") + section.columns[column] + ' ' + QuotedCell(rows, row, column);
    }
  }
  return details;
}

} // namespace

DirectoryDifference::DirectoryDifference(const Directory& before, const Directory& after)
    : m_Before(before), m_After(after) {
  for (std::size_t number = 0; number < SectionCount; ++number) {
    const Section& section = Sections.at(number);
    const Rows& old_rows = before.at(number);
    const Rows& new_rows = after.at(number);
    SectionDifference& difference = m_Sections.at(number);
    const std::vector<std::size_t> old_order = Sorted(old_rows, section.keys);
    const std::vector<std::size_t> new_order = Sorted(new_rows, section.keys);
    auto old_row = old_order.begin();
    auto new_row = new_order.begin();
    while (old_row != old_order.end() || new_row != new_order.end()) {
      const int order = old_row == old_order.end()   ? 1
                        : new_row == new_order.end() ? -1
                                                     : Compare(old_rows, *old_row, new_rows, *new_row, section.keys);
      if (order < 0) {
        difference.removed.push_back(*old_row++);
      } else if (order > 0) {
        difference.added.push_back(*new_row++);
      } else {
        if (Compare(old_rows, *old_row, new_rows, *new_row, section.columns.size()) == 0) {
          ++difference.unchanged;
        } else {
          difference.changed.emplace_back(*old_row, *new_row);
        }
        ++old_row;
        ++new_row;
      }
    }
  }
}

void DirectoryDifference::PrintSection(std::ostream& out, std::size_t number) const {
  const Section& section = Sections.at(number);
  const SectionDifference& difference = m_Sections.at(number);
  out << section.name << ": " << difference.added.size() << " added, " << difference.removed.size() << " removed, ";
  if (HasDetails(section)) {
    out << difference.changed.size() << " changed, ";
  }
  out << difference.unchanged << " unchanged\n";

  Table table(Headings.at(number));
  const auto add = [&](Cell mark, const Rows& rows, std::size_t row, const std::string& details) {
    std::vector<Cell> cells = {std::move(mark)};
    for (std::size_t column = 0; column < section.keys; ++column) {
      cells.emplace_back(ShownCell(section, rows, row, column));
    }
    if (HasDetails(section)) {
      cells.emplace_back(details);
    }
    table.Add(std::move(cells));
  };
  const Rows& before = m_Before.at(number);
  const Rows& after = m_After.at(number);
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
        details += IsSecret(section, column) ? "credential changed"
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

void DirectoryDifference::Print(std::ostream& out) const {
  for (std::size_t number = 0; number < SectionCount; ++number) {
    PrintSection(out, number);
  }
}

Json DirectoryDifference::SectionJson(std::size_t number) const {
  const Section& section = Sections.at(number);
  const SectionDifference& difference = m_Sections.at(number);
  const Rows& before = m_Before.at(number);
  const Rows& after = m_After.at(number);
  Json json = {{"added", Json::array()}, {"removed", Json::array()}};
  for (const std::size_t row : difference.added) {
    json["added"].push_back(RowJson(section, after, row, section.columns.size()));
  }
  for (const std::size_t row : difference.removed) {
    json["removed"].push_back(RowJson(section, before, row, section.columns.size()));
  }
  if (HasDetails(section)) {
    Json changed = Json::array();
    for (const auto& [old_row, new_row] : difference.changed) {
      Json changes = Json::object();
      for (std::size_t column = section.keys; column < section.columns.size(); ++column) {
        if (before.At(old_row, column) == after.At(new_row, column)) {
          continue;
        }
        if (IsSecret(section, column)) {
          changes["credential"] = "changed";
        } else {
          changes[section.columns[column]] = {{"from", CellJson(before, old_row, column)},
                                              {"to", CellJson(after, new_row, column)}};
        }
      }
      Json entry = RowJson(section, after, new_row, section.keys);
      entry["changes"] = std::move(changes);
      changed.push_back(std::move(entry));
    }
    json["changed"] = std::move(changed);
  }
  json["unchanged"] = difference.unchanged;
  return json;
}

Json DirectoryDifference::ToJson() const {
  Json json = Json::object();
  for (std::size_t number = 0; number < SectionCount; ++number) {
    json[Sections.at(number).name] = SectionJson(number);
  }
  return json;
}

} // namespace Tool
