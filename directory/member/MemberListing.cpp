#include "directory/member/MemberListing.h"

#include <algorithm>
#include <unordered_map>

namespace AccessDirectory {

namespace {

std::size_t CountRows(Database& database, const std::string& table) {
  return static_cast<std::size_t>(database.Number("SELECT count(*) FROM " + table));
}

void ReadRows(Database& database, const Section& section, std::size_t skip, std::size_t limit, MemberListing& listing) {
  std::string columns;
  for (std::size_t column = 0; column < section.columns.size(); ++column) {
    const std::string& name = section.columns[column];
    columns += (column == 0 ? "" : ", ") +
               (section.IsSecret(column) ? "'' AS " + name : "CAST(" + name + " AS TEXT) AS " + name);
  }
  std::vector<std::string> texts(section.columns.size());
  Statement(database, "SELECT " + columns + " FROM " + section.table + " ORDER BY rowid LIMIT CAST(? AS INTEGER) " +
                          "OFFSET CAST(? AS INTEGER)")
      .ForEach({std::to_string(limit), std::to_string(skip)}, [&](const Perenna::PListDict& row) {
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
                              Progress& progress) {
  const Section& listed = Sections.at(section);
  const std::string own = listed.columns.front();
  const std::string other = Sections.at(section == Users ? Groups : Users).columns.front();
  const Snapshot snapshot(database);
  MemberListing listing;
  listing.total = CountRows(database, listed.table);
  listing.memberships = CountRows(database, Sections.at(Memberships).table);
  listing.rows = Rows(listed.columns.size());
  ReadRows(database, listed, skip, limit, listing);
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
