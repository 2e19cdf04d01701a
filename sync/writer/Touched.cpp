#include "sync/writer/Touched.h"

#include "directory/Failure.h"
#include "directory/text/Text.h"

namespace Sync {

using AccessDirectory::Database;
using AccessDirectory::Failure;
using AccessDirectory::Field;
using AccessDirectory::SectionCount;
using AccessDirectory::Sections;
using AccessDirectory::Statement;

namespace {

std::string TableOf(const AccessDirectory::Section& section) {
  return std::string("touched_") + section.table;
}

std::string List(const AccessDirectory::Section& section, std::size_t end, const std::string& before,
                 const std::string& after = "", const char* between = ", ") {
  std::string list;
  for (std::size_t column = 0; column < end; ++column) {
    list.append(column == 0 ? "" : between).append(before).append(section.columns[column]).append(after);
  }
  return list;
}

void MakeTriggers(Database& database, const AccessDirectory::Section& section) {
  const std::string table = TableOf(section);
  const std::size_t columns = section.columns.size();
  database.Run("CREATE TEMP TABLE " + table + "(" + List(section, columns, "", "") + ", existed, PRIMARY KEY(" +
               List(section, section.keys, "") + "))");
  std::string nothing;
  for (std::size_t i = section.keys; i < columns; ++i) {
    nothing += "NULL, ";
  }
  const std::string keep = "INSERT OR IGNORE INTO " + table + " VALUES(";
  const std::string old_row = keep + List(section, columns, "OLD.") + ", 1);";
  const std::string new_row = keep + List(section, section.keys, "NEW.") + ", " + nothing + "0);";
  const auto trigger = [&](const std::string& change, const std::string& statements) {
    database.Run("CREATE TEMP TRIGGER " + table + "_" + change + " AFTER " + change + " ON main." + section.table +
                 " BEGIN " + statements + " END");
  };
  trigger("INSERT", new_row);
  trigger("UPDATE", old_row + " " + new_row);
  trigger("DELETE", old_row);
}

std::string Same(const AccessDirectory::Section& section) {
  std::string same;
  for (std::size_t column = 0; column < section.keys; ++column) {
    same += (column == 0 ? "" : " AND ") + std::string("now.") + section.columns[column] + " = before." +
            section.columns[column];
  }
  return same;
}

std::string FromTouched(const AccessDirectory::Section& section) {
  return " FROM temp." + TableOf(section) + " AS before ";
}

/// The rows that stood there before and do not any more.
std::string GoneStatement(const AccessDirectory::Section& section) {
  return "SELECT " + List(section, section.columns.size(), "before.") + FromTouched(section) +
         "WHERE before.existed = 1 AND NOT EXISTS(SELECT 1 FROM main." + section.table + " AS now WHERE " +
         Same(section) + ")";
}

/// The rows that are new, or other than before.
std::string OtherStatement(const AccessDirectory::Section& section) {
  std::string differs = "before.existed = 0";
  for (std::size_t column = section.keys; column < section.columns.size(); ++column) {
    const std::string& name = section.columns[column];
    differs.append(" OR now.").append(name).append(" IS NOT before.").append(name);
  }
  return "SELECT DISTINCT " + List(section, section.columns.size(), "now.") + FromTouched(section) + "JOIN main." +
         section.table + " AS now ON " + Same(section) + " WHERE " + differs;
}

} // namespace

Touched::Touched(Database& database) : m_Database(database) {
  for (const AccessDirectory::Section& section : Sections) {
    MakeTriggers(database, section);
  }
}

std::vector<Change> Touched::Differences() const {
  std::vector<Change> changes;
  for (std::size_t number = 0; number < SectionCount; ++number) {
    const AccessDirectory::Section& section = Sections.at(number);
    const auto add = [&](const std::string& sql, bool removed) {
      Statement(m_Database, sql).ForEach({}, [&](const Perenna::PListDict& row) {
        Change change{removed, {static_cast<AccessDirectory::SectionNumber>(number), {}}};
        for (const std::string& column : section.columns) {
          const bool is_text = row.GetData(column).HasType(Perenna::IT_STRING);
          const std::string text = is_text ? Field(row, column) : std::string();
          if (!removed && (!is_text || text.find('\0') != std::string::npos)) {
            throw Failure(Failure::Kind::Input, std::string("a ") + section.noun + " has a " + column +
                                                    " that is no text, or holds a NUL: a store keeps only texts");
          }
          change.entry.texts.push_back(text);
        }
        changes.push_back(std::move(change));
      });
    };
    add(GoneStatement(section), true);
    add(OtherStatement(section), false);
  }
  return changes;
}

} // namespace Sync
