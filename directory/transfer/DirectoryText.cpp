#include "directory/transfer/DirectoryText.h"

#include <algorithm>
#include <map>
#include <string_view>
#include <unordered_map>

#include "directory/Failure.h"

namespace AccessDirectory {

namespace {

/// A row as one line of the file.
std::string Line(const Section& section, const std::vector<std::string>& texts, StoredCredentials credentials) {
  std::string line = "{";
  for (std::size_t i = 0; i < texts.size(); ++i) {
    if (section.IsSecret(i) && credentials == StoredCredentials::LeftOut) {
      continue;
    }
    line += (line.size() == 1 ? "\"" : ",\"") + section.columns[i] + "\":" + JsonText(texts[i]).dump(-1, ' ', true);
  }
  return line + '}';
}

std::string InsertStatement(const Section& section) {
  std::string names;
  std::string values;
  for (const std::string& column : section.columns) {
    names += (names.empty() ? "" : ", ") + column;
    values += values.empty() ? "CAST(? AS TEXT)" : ", CAST(? AS TEXT)";
  }
  std::string sql = "INSERT INTO ";
  sql.append(section.table).append("(").append(names).append(") VALUES(").append(values).append(")");
  return sql;
}

} // namespace

SectionCounts WriteDirectory(Database& database, StoredCredentials credentials,
                             const std::function<void(const std::string& text)>& write, RowOrder order) {
  const Snapshot snapshot(database);
  return WriteRows(database, credentials, write, order);
}

SectionCounts WriteRows(Database& database, StoredCredentials credentials,
                        const std::function<void(const std::string& text)>& write, RowOrder order) {
  SectionCounts counts{};
  write(std::string("{\"format\":\"") + FileFormat + "\",\"version\":" + std::to_string(FileVersion));
  for (std::size_t number = 0; number < SectionCount; ++number) {
    const Section& section = Sections.at(number);
    write(std::string(",\n\"") + section.name + "\":[");
    std::size_t& count = counts.at(number);
    ForEachRow(
        database, section, NotText::Refuse,
        [&](const std::vector<std::string>& texts) {
          write((count == 0 ? "\n" : ",\n") + Line(section, texts, credentials));
          ++count;
        },
        order);
    write(count == 0 ? "]" : "\n]");
  }
  write("}\n");
  return counts;
}

Directory ReadStoredTexts(Database& database) {
  Directory stored = EmptyDirectory();
  for (std::size_t number = 0; number < SectionCount; ++number) {
    ForEachRow(database, Sections.at(number), NotText::Convert,
               [&](const std::vector<std::string>& texts) { stored.at(number).Append(texts); });
  }
  return stored;
}

void KeepCredentials(Directory& directory, const std::vector<std::size_t>& without, const Directory& stored,
                     FileFindings& errors) {
  if (without.empty()) {
    return;
  }
  const Rows& old = stored[Users];
  std::unordered_map<std::string_view, std::size_t> row_of_user;
  for (std::size_t row = 0; row < old.Count(); ++row) {
    row_of_user.emplace(old.At(row, UserColumn::Id), row);
  }
  const Rows& given = directory[Users];
  Rows filled(UserColumn::Count);
  auto next = without.begin(); // ascending
  std::vector<std::string> texts(UserColumn::Count);
  for (std::size_t row = 0; row < given.Count(); ++row) {
    for (std::size_t column = 0; column < texts.size(); ++column) {
      texts[column] = given.At(row, column);
    }
    if (next != without.end() && *next == row) {
      ++next;
      const auto known = row_of_user.find(texts[UserColumn::Id]);
      if (!given.IsSound(row)) {
        // more is wrong with it, and was said
      } else if (known == row_of_user.end()) {
        errors.Add("users[" + std::to_string(row) + "]", "is a new user without a credential");
      } else if (old.At(known->second, UserColumn::Method) != texts[UserColumn::Method]) {
        errors.Add("users[" + std::to_string(row) + "]",
                   "has another auth_method than before, and no credential for it");
      } else {
        texts[UserColumn::Value] = old.At(known->second, UserColumn::Value);
      }
    }
    filled.Append(texts, given.IsSound(row));
  }
  directory[Users] = std::move(filled);
}

bool ImportScope::IsWhole() const noexcept {
  return !merge && std::all_of(sections.begin(), sections.end(), [](bool section) { return section; });
}

namespace {

std::vector<std::string> TextsOf(const Rows& rows, std::size_t row, std::size_t columns) {
  std::vector<std::string> texts(columns);
  for (std::size_t column = 0; column < columns; ++column) {
    texts[column] = rows.At(row, column);
  }
  return texts;
}

/// The stored rows in their order, those with the keys of a given one as that has it, and then what is new.
Rows Merged(const Rows& stored, const Rows& given, const Section& section) {
  const std::size_t columns = section.columns.size();
  std::map<std::vector<std::string>, std::size_t> given_of;
  for (std::size_t row = 0; row < given.Count(); ++row) {
    given_of.emplace(TextsOf(given, row, section.keys), row);
  }
  std::vector<bool> used(given.Count());
  Rows merged(columns);
  for (std::size_t row = 0; row < stored.Count(); ++row) {
    const auto found = given_of.find(TextsOf(stored, row, section.keys));
    if (found == given_of.end()) {
      merged.Append(TextsOf(stored, row, columns));
    } else {
      used[found->second] = true;
      merged.Append(TextsOf(given, found->second, columns));
    }
  }
  for (const auto& [keys, row] : given_of) {
    used[row] = !used[row]; // now: those that are new
  }
  for (std::size_t row = 0; row < given.Count(); ++row) {
    if (used[row]) {
      merged.Append(TextsOf(given, row, columns), given.IsSound(row));
    }
  }
  return merged;
}

} // namespace

Directory Combined(const Directory& stored, Directory given, const ImportScope& scope) {
  for (std::size_t number = 0; number < SectionCount; ++number) {
    if (!scope.sections.at(number)) {
      given.at(number) = stored.at(number);
    } else if (scope.merge) {
      given.at(number) = Merged(stored.at(number), given.at(number), Sections.at(number));
    }
  }
  return given;
}

void ReplaceDirectory(Database& database, const Directory& directory, Progress& progress) {
  if (database.Texts("PRAGMA encoding") != std::vector<std::string>{"UTF-8"}) {
    throw Failure(Failure::Kind::System, "the database " + Quoted(database.File()) +
                                             " stores its texts as UTF-16, which cannot hold every text");
  }
  // Without this, a change larger than SQLite's cache would lock readers out long before it is complete.
  database.Run("PRAGMA cache_spill = OFF");
  progress.Begin("Writing", Sum(CountsOf(directory)));
  for (std::size_t number = 0; number < SectionCount; ++number) {
    const Section& section = Sections.at(number);
    const Rows& rows = directory.at(number);
    database.Run(std::string("DELETE FROM ") + section.table);
    Statement insert(database, InsertStatement(section));
    std::vector<std::string> texts(section.columns.size());
    for (std::size_t row = 0; row < rows.Count(); ++row) {
      for (std::size_t column = 0; column < texts.size(); ++column) {
        texts[column] = rows.At(row, column);
      }
      insert.Run(texts);
      progress.Advance(1);
    }
  }
}

} // namespace AccessDirectory
