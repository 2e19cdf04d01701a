#include "sync/replica/Guards.h"

#include <array>
#include <string>

namespace Sync {

using AccessDirectory::Database;

namespace {

constexpr std::array<const char*, 4> Tables = {"users", "groups", "groupusers", "filters"};
constexpr std::array<const char*, 3> Changes = {"INSERT", "UPDATE", "DELETE"};

std::string NameOf(const std::string& table, const std::string& change) {
  return "perenna_replica_" + table + "_" + change;
}

std::string StatementOf(const std::string& table, const std::string& change) {
  return "CREATE TRIGGER " + NameOf(table, change) + " BEFORE " + change + " ON " + table +
         " WHEN (SELECT writing FROM perenna_replica) IS NOT 1 BEGIN SELECT RAISE(ABORT, 'this file is a replica: "
         "changes go through the store'); END";
}

} // namespace

void MakeReplicaTable(Database& database) {
  database.Run("CREATE TABLE perenna_replica(directory TEXT NOT NULL, cluster_id TEXT NOT NULL, "
               "generation INTEGER NOT NULL, revision INTEGER NOT NULL, head_txn TEXT NOT NULL, "
               "writing INTEGER NOT NULL, guarded INTEGER NOT NULL)");
  database.Run("INSERT INTO perenna_replica VALUES('', '', 0, 0, '', 0, 0)");
}

bool RestoreGuards(Database& database) {
  bool changed = false;
  for (const char* const table : Tables) {
    for (const char* const change : Changes) {
      const std::string statement = StatementOf(table, change);
      const auto found =
          database.Texts("SELECT sql FROM sqlite_master WHERE type = 'trigger' AND name = ?", {NameOf(table, change)});
      if (found == std::vector<std::string>{statement}) {
        continue;
      }
      database.Run("DROP TRIGGER IF EXISTS " + NameOf(table, change));
      database.Run(statement);
      changed = true;
    }
  }
  const std::string version = database.Texts("SELECT CAST(schema_version AS TEXT) FROM pragma_schema_version").at(0);
  if (changed || !IsGuardedStill(database)) {
    database.Run("UPDATE perenna_replica SET guarded = CAST(? AS INTEGER)", {version});
  }
  return changed;
}

bool IsGuardedStill(Database& database) {
  return database.Number(
             "SELECT count(*) FROM perenna_replica, pragma_schema_version WHERE guarded = schema_version") == 1;
}

} // namespace Sync
