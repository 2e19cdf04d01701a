#include "directory/member/MemberListing.h"

#include <algorithm>
#include <unordered_map>

namespace AccessDirectory {

namespace {

std::size_t CountRows(Database& database, const std::string& table) {
  return static_cast<std::size_t>(database.Number("SELECT count(*) FROM " + table));
}

/// A condition on the rows of a section, and its arguments.
struct Condition {
  std::string sql;
  std::vector<std::string> arguments;
};

Condition ConditionOf(SectionNumber section, const Selection& selection) {
  Condition condition = {"1", {}};
  if (!selection.search.empty()) {
    const std::string holds = "instr(lower(CAST(%s AS TEXT)), lower(CAST(? AS TEXT))) > 0";
    const auto of = [&holds](const std::string& column) {
      return std::string(holds).replace(holds.find("%s"), 2, column);
    };
    condition.sql +=
        section == Users ? " AND " + of("user_id") : " AND (" + of("group_id") + " OR " + of("group_name") + ")";
    condition.arguments.assign(section == Users ? 1 : 2, selection.search);
  }
  if (section == Users && !selection.member_of.empty()) {
    condition.sql += " AND user_id IN (SELECT user_id FROM groupusers WHERE group_id = ?)";
    condition.arguments.push_back(selection.member_of);
  }
  return condition;
}

void ReadRows(Database& database, const Section& section, const Condition& condition, std::size_t skip,
              std::size_t limit, MemberListing& listing) {
  std::string columns;
  for (std::size_t column = 0; column < section.columns.size(); ++column) {
    const std::string& name = section.columns[column];
    columns.append(column == 0 ? "" : ", ").append(section.IsSecret(column) ? "''" : "CAST(" + name + " AS TEXT)");
    columns.append(" AS ").append(name);
  }
  std::vector<std::string> texts(section.columns.size());
  std::vector<std::string> arguments = condition.arguments;
  arguments.push_back(std::to_string(limit));
  arguments.push_back(std::to_string(skip));
  Statement(database, "SELECT " + columns + " FROM " + section.table + " WHERE " + condition.sql +
                          " ORDER BY rowid LIMIT CAST(? AS INTEGER) OFFSET CAST(? AS INTEGER)")
      .ForEach(arguments, [&](const Perenna::PListDict& row) {
        std::transform(section.columns.begin(), section.columns.end(), texts.begin(),
                       [&row](const std::string& column) { return Field(row, column); });
        listing.rows.Append(texts);
      });
}

/// A user is in a group or not; a group lists a membership as often as it is stored, as the module does.
void Order(std::vector<std::string>& members, SectionNumber section) {
  std::sort(members.begin(), members.end());
  if (section == Users) {
    members.erase(std::unique(members.begin(), members.end()), members.end());
  }
}

} // namespace

MemberListing ListWithMembers(Database& database, SectionNumber section, std::size_t skip, std::size_t limit,
                              Progress& progress, const Selection& selection) {
  const Section& listed = Sections.at(section);
  const std::string own = listed.columns.front();
  const std::string other = Sections.at(section == Users ? Groups : Users).columns.front();
  const Snapshot snapshot(database);
  MemberListing listing;
  const Condition condition = ConditionOf(section, selection);
  listing.total = static_cast<std::size_t>(database.Number(
      std::string("SELECT count(*) FROM ") + listed.table + " WHERE " + condition.sql, condition.arguments));
  listing.memberships = CountRows(database, Sections.at(Memberships).table);
  listing.rows = Rows(listed.columns.size());
  ReadRows(database, listed, condition, skip, limit, listing);
  listing.members.resize(listing.rows.Count());
  std::unordered_map<std::string_view, std::size_t> row_of_id;
  for (std::size_t row = 0; row < listing.rows.Count(); ++row) {
    row_of_id.emplace(listing.rows.At(row, 0), row);
  }
  progress.Begin("Reading memberships", listing.memberships);
  // A blob equals no text: it is nobody's membership.
  Statement(database, "SELECT " + own + ", " + other + " FROM groupusers WHERE typeof(" + own + ") = 'text'")
      .ForEach({}, [&](const Perenna::PListDict& row) {
        progress.Advance(1);
        if (const auto found = row_of_id.find(Field(row, own)); found != row_of_id.end()) {
          listing.members[found->second].push_back(Field(row, other));
        }
      });
  for (auto& members : listing.members) {
    Order(members, section);
  }
  return listing;
}

} // namespace AccessDirectory
