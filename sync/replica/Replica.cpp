#include "sync/replica/Replica.h"

#include <array>
#include <utility>

#include <sys/stat.h>

#include "directory/Failure.h"
#include "directory/file/Schema.h"
#include "directory/file/Tune.h"
#include "directory/text/Text.h"
#include "sync/replica/Guards.h"

namespace Sync {

using AccessDirectory::Database;
using AccessDirectory::Failure;
using AccessDirectory::SectionCount;
using AccessDirectory::Sections;
using AccessDirectory::Statement;
using AccessDirectory::Transaction;

namespace {

/// "a = ? AND b = ?" and the like for the first columns of a section.
std::string ForColumns(std::size_t section, std::size_t begin, std::size_t end, const std::string& before,
                       const std::string& after, const std::string& between) {
  std::string sql;
  for (std::size_t column = begin; column < end; ++column) {
    const std::string& name = Sections.at(section).columns[column];
    sql.append(column == begin ? "" : between).append(before).append(name).append(after);
    if (const std::size_t mark = sql.find('$'); mark != std::string::npos) {
      sql.replace(mark, 1, name);
    }
  }
  return sql;
}

std::string Names(std::size_t section) {
  return ForColumns(section, 0, Sections.at(section).columns.size(), "", "", ", ");
}

std::string Marks(std::size_t section) {
  std::string marks = "?";
  for (std::size_t i = 1; i < Sections.at(section).columns.size(); ++i) {
    marks += ", ?";
  }
  return marks;
}

std::string Condition(std::size_t section) {
  return ForColumns(section, 0, Sections.at(section).keys, "", " = ?", " AND ");
}

std::string Temporary(std::size_t section) {
  return std::string("temp.wanted_") + Sections.at(section).table;
}

/// "wanted.a = held.a AND ..."
std::string SameKey(std::size_t section) {
  return ForColumns(section, 0, Sections.at(section).keys, "wanted.", " = held.$", " AND ");
}

/// A new row, or the new details of one that keeps its place.
std::string PutStatement(std::size_t section) {
  const AccessDirectory::Section& about = Sections.at(section);
  const std::string table = about.table;
  if (about.HasDetails()) {
    return "INSERT INTO " + table + "(" + Names(section) + ") VALUES(" + Marks(section) + ") ON CONFLICT(" +
           about.columns.front() + ") DO UPDATE SET " +
           ForColumns(section, about.keys, about.columns.size(), "", " = excluded.$", ", ");
  }
  return "INSERT INTO " + table + "(" + Names(section) + ") SELECT " + Marks(section) +
         " WHERE NOT EXISTS(SELECT 1 FROM " + table + " WHERE " + Condition(section) + ")";
}

/// What makes a table hold the entries that are wanted, and those that it holds already stay untouched.
std::vector<std::string> ReplacingStatements(std::size_t section) {
  const AccessDirectory::Section& about = Sections.at(section);
  const std::string table = about.table;
  std::vector<std::string> statements = {"DELETE FROM " + table + " AS held WHERE NOT EXISTS(SELECT 1 FROM " +
                                         Temporary(section) + " AS wanted WHERE " + SameKey(section) + ")"};
  if (about.HasDetails()) {
    const std::string details = ForColumns(section, about.keys, about.columns.size(), "", "", ", ");
    statements.push_back("UPDATE " + table + " AS held SET (" + details + ") = (SELECT " + details + " FROM " +
                         Temporary(section) + " AS wanted WHERE " + SameKey(section) + ") WHERE EXISTS(SELECT 1 FROM " +
                         Temporary(section) + " AS wanted WHERE " + SameKey(section) + " AND NOT (" +
                         ForColumns(section, about.keys, about.columns.size(), "wanted.", " IS held.$", " AND ") +
                         "))");
  } else {
    statements.push_back("DELETE FROM " + table + " WHERE rowid NOT IN (SELECT min(rowid) FROM " + table +
                         " GROUP BY " + Names(section) + ")");
  }
  statements.push_back("INSERT INTO " + table + "(" + Names(section) + ") SELECT " + Names(section) + " FROM " +
                       Temporary(section) + " AS wanted WHERE NOT EXISTS(SELECT 1 FROM " + table + " AS held WHERE " +
                       SameKey(section) + ")");
  return statements;
}

} // namespace

struct Replica::Statements {
  explicit Statements(Database& database) {
    for (std::size_t section = 0; section < SectionCount; ++section) {
      put.at(section) = std::make_unique<Statement>(database, PutStatement(section));
      remove.at(section) = std::make_unique<Statement>(
          database, std::string("DELETE FROM ") + Sections.at(section).table + " WHERE " + Condition(section));
    }
  }

  std::array<std::unique_ptr<Statement>, SectionCount> put;
  std::array<std::unique_ptr<Statement>, SectionCount> remove;
  std::array<std::unique_ptr<Statement>, SectionCount> want;
};

/// A transaction in which the triggers let changes pass, if the file is still at the row that the agent knows.
class Replica::Writing {
public:
  explicit Writing(Replica& replica) : m_Replica(replica), m_Transaction(replica.m_Database) {
    const ReplicaRow& row = replica.m_Row;
    m_IsOurs = replica.m_Database.Run(
                   "UPDATE perenna_replica SET writing = 1 WHERE directory = ? AND generation = "
                   "CAST(? AS INTEGER) AND revision = CAST(? AS INTEGER) AND head_txn = ?",
                   {row.directory, std::to_string(row.generation), std::to_string(row.revision), row.head_txn}) == 1;
  }
  bool IsOurs() const noexcept { return m_IsOurs; }

  void Commit(const ReplicaRow& after) {
    m_Replica.m_Database.Run(
        "UPDATE perenna_replica SET directory = ?, cluster_id = ?, generation = CAST(? AS INTEGER), "
        "revision = CAST(? AS INTEGER), head_txn = ?, writing = 0",
        {after.directory, after.cluster, std::to_string(after.generation), std::to_string(after.revision),
         after.head_txn});
    m_Transaction.Commit();
    m_Replica.m_Row = after;
  }

private:
  Replica& m_Replica;
  Transaction m_Transaction;
  bool m_IsOurs;
};

bool Replica::IsReplica(const std::string& file) {
  return AccessDirectory::ReadReplicaRow(file).has_value();
}

void Replica::Make(const std::string& file) {
  AccessDirectory::CreateSchema(file);
  {
    Database database(file, Database::Access::Write);
    AccessDirectory::Tune(database, AccessDirectory::StepsToTune(database));
  }
  Database database(file, Database::Access::Write);
  Transaction transaction(database);
  MakeReplicaTable(database);
  RestoreGuards(database);
  transaction.Commit();
}

Replica::Replica(const std::string& file) : m_File(file), m_Database(file, Database::Access::Write) {
  if (!Reread()) {
    throw Failure(Failure::Kind::Refused, "the database " + AccessDirectory::Quoted(file) +
                                              " is no replica: \"sync init\" puts its directory into an empty store, "
                                              "and \"sync join\" makes a new file from one");
  }
  m_Statements = std::make_unique<Statements>(m_Database);
  struct stat status = {};
  if (stat(file.c_str(), &status) == 0) {
    m_Device = status.st_dev;
    m_Inode = status.st_ino;
  }
  WasTouched();
}

Replica::~Replica() = default;

bool Replica::Reread() {
  const auto row = AccessDirectory::ReadReplicaRow(m_Database);
  if (!row && m_Statements != nullptr) {
    throw Failure(Failure::Kind::System,
                  "the database " + AccessDirectory::Quoted(m_File) +
                      " is no replica any more: its table perenna_replica was emptied or dropped; "
                      "with the file out of the way the agent makes it anew");
  }
  if (!row) {
    return false;
  }
  const bool is_another = row->directory != m_Row.directory || row->generation != m_Row.generation ||
                          row->revision != m_Row.revision || row->head_txn != m_Row.head_txn;
  m_Row = *row;
  return is_another || m_Statements == nullptr;
}

bool Replica::Apply(const std::vector<Change>& changes, const ReplicaRow& after) {
  Writing writing(*this);
  if (!writing.IsOurs()) {
    return false;
  }
  std::vector<std::string> arguments;
  for (const Change& change : changes) {
    const AccessDirectory::SectionNumber section = change.entry.section;
    arguments = change.entry.texts;
    if (change.removed) {
      arguments.resize(Sections.at(section).keys);
      m_Statements->remove.at(section)->Run(arguments);
    } else {
      if (!Sections.at(section).HasDetails()) {
        arguments.insert(arguments.end(), change.entry.texts.begin(), change.entry.texts.end());
      }
      m_Statements->put.at(section)->Run(arguments);
    }
  }
  writing.Commit(after);
  return true;
}

void Replica::BeginReplacement() {
  if (sqlite3_get_autocommit(m_Database.Handle()) == 0) {
    m_Database.Run("ROLLBACK"); // of one that the store broke off
  }
  for (std::size_t section = 0; section < SectionCount; ++section) {
    m_Statements->want.at(section).reset();
    m_Database.Run("DROP TABLE IF EXISTS " + Temporary(section));
    m_Database.Run("CREATE TABLE " + Temporary(section) + "(" +
                   ForColumns(section, 0, Sections.at(section).columns.size(), "", " TEXT NOT NULL", ", ") +
                   ", PRIMARY KEY(" + ForColumns(section, 0, Sections.at(section).keys, "", "", ", ") +
                   ")) WITHOUT ROWID");
    m_Statements->want.at(section) = std::make_unique<Statement>(
        m_Database, "INSERT OR REPLACE INTO " + Temporary(section) + " VALUES(" + Marks(section) + ")");
  }
  m_Database.Run("BEGIN"); // of the temporary tables: each insertion would be a transaction of its own
}

void Replica::AddToReplacement(const Entry& entry) {
  m_Statements->want.at(entry.section)->Run(entry.texts);
}

std::size_t Replica::ReplaceBy(const ReplicaRow& after) {
  m_Database.Run("COMMIT");
  Reread(); // whatever it is at: it will be at `after`
  std::size_t changed = 0;
  {
    Writing writing(*this);
    RestoreGuards(m_Database);
    for (std::size_t section = 0; section < SectionCount; ++section) {
      for (const std::string& sql : ReplacingStatements(section)) {
        changed += static_cast<std::size_t>(m_Database.Run(sql));
      }
    }
    writing.Commit(after);
  }
  for (std::size_t section = 0; section < SectionCount; ++section) {
    m_Statements->want.at(section).reset();
    m_Database.Run("DROP TABLE " + Temporary(section));
  }
  return changed;
}

bool Replica::WasTouched() {
  const std::string version = m_Database.Texts("PRAGMA data_version").at(0);
  return std::exchange(m_Version, version) != version;
}

bool Replica::LostGuards() {
  return !IsGuardedStill(m_Database);
}

bool Replica::IsInPlace() const noexcept {
  struct stat status = {};
  return stat(m_File.c_str(), &status) == 0 && status.st_dev == m_Device && status.st_ino == m_Inode;
}

} // namespace Sync
