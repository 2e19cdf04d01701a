#include "directory/transfer/DirectoryDifference.h"

#include <algorithm>
#include <numeric>

namespace AccessDirectory {

namespace {

/// The rows in ascending order of their first `keys` columns.
std::vector<std::size_t> Sorted(const Rows& rows, std::size_t keys) {
  std::vector<std::size_t> order(rows.Count());
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::stable_sort(order.begin(), order.end(), [&rows, keys](std::size_t left, std::size_t right) {
    return Compare(rows, left, rows, right, keys) < 0;
  });
  return order;
}

Json CellJson(const Rows& rows, std::size_t row, std::size_t column) {
  return JsonText(std::string(rows.At(row, column)));
}

/// The first `columns` of a row, without a secret.
Json RowJson(const Section& section, const Rows& rows, std::size_t row, std::size_t columns) {
  Json json = Json::object();
  for (std::size_t column = 0; column < columns; ++column) {
    if (!section.IsSecret(column)) {
      json[section.columns[column]] = CellJson(rows, row, column);
    }
  }
  return json;
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
  if (section.HasDetails()) {
    Json changed = Json::array();
    for (const auto& [old_row, new_row] : difference.changed) {
      Json changes = Json::object();
      for (std::size_t column = section.keys; column < section.columns.size(); ++column) {
        if (before.At(old_row, column) == after.At(new_row, column)) {
          continue;
        }
        if (section.IsSecret(column)) {
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

} // namespace AccessDirectory
