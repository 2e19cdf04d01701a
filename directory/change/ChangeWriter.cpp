#include "directory/change/ChangeWriter.h"

#include "directory/replica/ReplicaRow.h"
#include "directory/text/Text.h"

namespace AccessDirectory {

namespace {

constexpr int Attempts = 50; // each comes after the change that was first: others have made progress

class FileChange : public PendingChange {
public:
  explicit FileChange(const std::string& file) : m_Database(file, Database::Access::Write), m_Transaction(m_Database) {}

  Database& TheDatabase() override { return m_Database; }
  void Commit() override { m_Transaction.Commit(); }

private:
  Database m_Database;
  Transaction m_Transaction;
};

} // namespace

void ChangeWriter::Write(const std::function<void(Database& database)>& change) {
  for (int attempt = 1;; ++attempt) {
    try {
      const std::unique_ptr<PendingChange> pending = Begin();
      change(pending->TheDatabase());
      pending->Commit();
      return;
    } catch (const ChangeConflict&) {
      if (attempt == Attempts) {
        throw;
      }
    }
  }
}

std::unique_ptr<PendingChange> FileWriter::Begin() {
  auto change = std::make_unique<FileChange>(m_File);
  if (ReadReplicaRow(change->TheDatabase())) {
    throw Failure(Failure::Kind::System, "the database " + Quoted(m_File) +
                                             " is a replica: changes go through its store, which the configuration's "
                                             "section \"Sync\" names");
  }
  return change;
}

bool FileWriter::ModuleMayWrite() {
  return !ReadReplicaRow(m_File);
}

} // namespace AccessDirectory
