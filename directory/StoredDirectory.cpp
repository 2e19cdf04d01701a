#include "directory/StoredDirectory.h"

namespace AccessDirectory {

namespace {

void ReadRows(Database& database, const Section& section, StoredRows& stored) {
  std::string sql = "SELECT rowid AS rowid, 0";
  for (std::size_t i = 0; i < section.columns.size(); ++i) {
    sql += " + " + std::to_string(1U << i) + " * (typeof(" + section.columns[i] + ") = 'blob')";
  }
  sql += " AS blobs";
  for (const std::string& column : section.columns) {
    sql.append(", CAST(").append(column).append(" AS TEXT) AS ").append(column);
  }
  std::vector<std::string> texts(section.columns.size());
  Statement(database, sql + " FROM " + section.table + " ORDER BY rowid")
      .ForEach({}, [&](const Perenna::PListDict& row) {
        for (std::size_t i = 0; i < texts.size(); ++i) {
          texts[i] = Field(row, section.columns[i]);
        }
        stored.texts.Append(texts);
        stored.rowids.push_back(std::stoll(Field(row, "rowid")));
        stored.blobs.push_back(static_cast<unsigned>(std::stoul(Field(row, "blobs"))));
      });
}

} // namespace

StoredDirectory ReadStoredDirectory(Database& database) {
  StoredDirectory stored = {StoredRows(UserColumn::Count), StoredRows(GroupColumn::Count),
                            StoredRows(MembershipColumn::Count), StoredRows(FilterColumn::Count)};
  const Snapshot snapshot(database);
  for (std::size_t number = 0; number < SectionCount; ++number) {
    ReadRows(database, Sections.at(number), stored.at(number));
  }
  return stored;
}

} // namespace AccessDirectory
