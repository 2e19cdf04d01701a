#include "directory/replica/ReplicaRow.h"

namespace AccessDirectory {

std::optional<ReplicaRow> ReadReplicaRow(Database& database) {
  std::optional<ReplicaRow> replica;
  if (database.Number("SELECT count(*) FROM sqlite_master WHERE type = 'table' AND name = 'perenna_replica'") == 0) {
    return replica;
  }
  Statement(database, "SELECT directory, cluster_id, CAST(generation AS TEXT) AS generation, CAST(revision AS TEXT) AS "
                      "revision, head_txn FROM perenna_replica")
      .ForEach({}, [&replica](const Perenna::PListDict& row) {
        replica = ReplicaRow{Field(row, "directory"), Field(row, "cluster_id"), std::stoll(Field(row, "generation")),
                             std::stoll(Field(row, "revision")), Field(row, "head_txn")};
      });
  return replica;
}

std::optional<ReplicaRow> ReadReplicaRow(const std::string& file) {
  Database database(file, Database::Access::Read);
  return ReadReplicaRow(database);
}

} // namespace AccessDirectory
