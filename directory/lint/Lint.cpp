#include "directory/lint/Lint.h"

#include <algorithm>

#include "directory/file/FileNames.h"
#include "directory/lint/LintKinds.h"
#include "directory/lint/ShellWords.h"

namespace AccessDirectory {

std::vector<FindingsOfKind> ByKind(const std::vector<Finding>& findings) {
  std::vector<FindingsOfKind> kinds;
  for (std::size_t number = 0; number < findings.size(); ++number) {
    const LintKind* const kind = findings[number].kind;
    auto place = std::find_if(kinds.begin(), kinds.end(), [kind](const auto& known) { return known.kind == kind; });
    if (place == kinds.end()) {
      place = kinds.insert(place, {kind, {}});
    }
    place->findings.push_back(number);
  }
  std::stable_partition(kinds.begin(), kinds.end(),
                        [](const auto& known) { return known.kind->severity == Severity::Problem; });
  return kinds;
}

std::vector<Finding> LintFile(const std::string& file) {
  if (!OthersMayOpen(file)) {
    return {};
  }
  const auto command = ShellCommand({"chmod", "o=", "--", file});
  return {{&LintKinds::FileMode, SectionCount, 0,
           "every user of this machine may open the file, which holds the credentials, or the log beside it",
           command ? *command : "take the rights of others away with chmod"}};
}

Lint::Lint(const StoredDirectory& stored, const Mender& mender, FilterProofs& proofs, Progress& progress)
    : m_Stored(stored), m_Mender(mender), m_Proofs(proofs), m_Progress(progress) {}

std::vector<Finding> Lint::Run() {
  std::size_t total = In(Filters).texts.Count(); // read twice
  for (const StoredRows& rows : m_Stored) {
    total += rows.texts.Count();
  }
  m_Progress.Begin("Checking", total);
  Index();
  IndexFilters();
  const auto for_each = [this](SectionNumber section, void (Lint::*check)(std::size_t)) {
    for (std::size_t row = 0; row < In(section).texts.Count(); ++row) {
      m_Progress.Advance(1);
      (this->*check)(row);
    }
  };
  for_each(Users, &Lint::CheckUser);
  for_each(Groups, &Lint::CheckGroup);
  for_each(Memberships, &Lint::CheckMembership);
  for_each(Filters, &Lint::CheckFilter);
  return std::move(m_Findings);
}

void Lint::Index() {
  const auto index_ids = [this](SectionNumber section, RowOfId& ids) {
    for (std::size_t row = 0; row < In(section).texts.Count(); ++row) {
      if (!In(section).IsBlob(row, 0)) {
        ids.emplace(In(section).texts.At(row, 0), row);
      }
    }
  };
  index_ids(Users, m_Users);
  index_ids(Groups, m_Groups);
  const auto index_memberships = [this](std::size_t column, RowsOfId& rows) {
    for (std::size_t row = 0; row < In(Memberships).texts.Count(); ++row) {
      if (!In(Memberships).IsBlob(row, column)) {
        rows[In(Memberships).texts.At(row, column)].push_back(row);
      }
    }
  };
  index_memberships(MembershipColumn::User, m_MembershipsOfUser);
  index_memberships(MembershipColumn::Group, m_MembershipsOfGroup);
}

void Lint::Add(const LintKind& kind, SectionNumber section, std::size_t row, std::string why, std::string mend) {
  m_Findings.push_back({&kind, section, row, std::move(why), std::move(mend)});
}

std::string Lint::DeleteRow(SectionNumber section, std::size_t row) const {
  return m_Mender.Sql(std::string("DELETE FROM ") + Sections.at(section).table +
                      " WHERE rowid = " + std::to_string(In(section).rowids[row]));
}

bool Lint::AddUnreachable(SectionNumber section, std::size_t row, std::size_t id_columns) {
  const Section& table = Sections.at(section);
  if (In(section).blobs[row] != 0) {
    std::string names;
    std::string assignments;
    for (std::size_t column = 0; column < table.columns.size(); ++column) {
      if (In(section).IsBlob(row, column)) {
        const std::string& name = table.columns[column];
        const char* const separator = names.empty() ? "" : ", ";
        names.append(separator).append(name);
        assignments.append(separator).append(name).append(" = CAST(").append(name).append(" AS TEXT)");
      }
    }
    Add(LintKinds::ValueBlob, section, row,
        names + ": stored as a blob, which is equal to no text: who looks for the row, or wants to delete it, does not "
                "find it",
        m_Mender.Sql(std::string("UPDATE ") + table.table + " SET " + assignments +
                     " WHERE rowid = " + std::to_string(In(section).rowids[row])));
    return true;
  }
  for (std::size_t column = 0; column < id_columns; ++column) {
    if (In(section).texts.At(row, column).find('\0') != std::string_view::npos) {
      Add(LintKinds::ValueNul, section, row,
          table.columns[column] +
              " holds a NUL, where a text ends for the module: no request and no command can name it",
          DeleteRow(section, row));
      return true;
    }
  }
  return false;
}

} // namespace AccessDirectory
