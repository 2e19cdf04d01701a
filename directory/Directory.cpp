#include "directory/Directory.h"

#include <numeric>

#include "directory/Failure.h"

namespace AccessDirectory {

const std::array<Section, SectionCount> Sections = {{
    {"users", "user", "users", {"user_id", "auth_method", "auth_value", "create_date", "create_user"}, 1},
    {"groups", "group", "groups", {"group_id", "group_name"}, 1},
    {"memberships", "membership", "groupusers", {"group_id", "user_id"}, 2},
    {"filters", "filter", "filters", {"method", "group_id", "filter", "action"}, 4},
}};

bool Section::IsSecret(std::size_t column) const noexcept {
  return this == &Sections[Users] && column == UserColumn::Value;
}

void Rows::Append(const std::vector<std::string>& texts, bool sound) {
  for (std::size_t column = 0; column < m_Columns; ++column) {
    m_Bytes += texts.at(column);
    m_Ends.push_back(m_Bytes.size());
  }
  m_Sound.push_back(sound);
}

std::string_view Rows::At(std::size_t row, std::size_t column) const {
  const std::size_t cell = row * m_Columns + column;
  return std::string_view(m_Bytes).substr(Begin(cell), m_Ends[cell] - Begin(cell));
}

std::string_view Rows::Whole(std::size_t row) const {
  const std::size_t begin = Begin(row * m_Columns);
  return std::string_view(m_Bytes).substr(begin, Begin((row + 1) * m_Columns) - begin);
}

Directory EmptyDirectory() {
  return {Rows(UserColumn::Count), Rows(GroupColumn::Count), Rows(MembershipColumn::Count), Rows(FilterColumn::Count)};
}

SectionCounts CountsOf(const Directory& directory) {
  SectionCounts counts{};
  for (std::size_t number = 0; number < SectionCount; ++number) {
    counts.at(number) = directory.at(number).Count();
  }
  return counts;
}

std::size_t Sum(const SectionCounts& counts) {
  return std::accumulate(counts.begin(), counts.end(), std::size_t{0});
}

std::string CountsText(const SectionCounts& counts) {
  std::string text;
  for (std::size_t number = 0; number < SectionCount; ++number) {
    text += number == 0 ? "" : number + 1 == SectionCount ? " and " : ", ";
    text += Count(counts.at(number), Sections.at(number).noun);
  }
  return text;
}

Json CountsJson(const SectionCounts& counts) {
  Json json = Json::object();
  for (std::size_t number = 0; number < SectionCount; ++number) {
    json[Sections.at(number).name] = counts.at(number);
  }
  return json;
}

int Compare(const Rows& left, std::size_t left_row, const Rows& right, std::size_t right_row, std::size_t columns) {
  for (std::size_t column = 0; column < columns; ++column) {
    const int order = left.At(left_row, column).compare(right.At(right_row, column));
    if (order != 0) {
      return order;
    }
  }
  return 0;
}

void ForEachRow(Database& database, const Section& section, NotText not_text,
                const std::function<void(const std::vector<std::string>& texts)>& visit, RowOrder order) {
  std::string sql = "SELECT rowid AS rowid";
  for (const std::string& column : section.columns) {
    sql += not_text == NotText::Refuse ? ", " : ", CAST(";
    sql += column;
    sql += not_text == NotText::Refuse ? "" : " AS TEXT) AS " + column;
  }
  sql += std::string(" FROM ") + section.table + " ORDER BY ";
  for (std::size_t column = 0; order == RowOrder::Sorted && column < section.columns.size(); ++column) {
    sql += "CAST(" + std::string(section.table) + "." + section.columns[column] + " AS BLOB), "; // as bytes
  }
  sql += "rowid";
  std::vector<std::string> texts(section.columns.size());
  Statement(database, sql).ForEach({}, [&](const Perenna::PListDict& row) {
    for (std::size_t i = 0; i < texts.size(); ++i) {
      const Perenna::PListData& cell = row.GetData(section.columns[i]);
      if (not_text == NotText::Refuse && !cell.HasType(Perenna::IT_STRING)) {
        throw Failure(Failure::Kind::System, "the database " + Quoted(database.File()) + ": table " + section.table +
                                                 ", rowid " + Field(row, "rowid") + ": " + section.columns[i] +
                                                 " is stored as something else than text");
      }
      texts[i] = cell.GetValue();
    }
    visit(texts);
  });
}

} // namespace AccessDirectory
