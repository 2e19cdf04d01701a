#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "directory/file/Database.h"
#include "directory/replica/ReplicaRow.h"
#include "sync/data/Entry.h"

namespace Sync {

using AccessDirectory::ReplicaRow;

/// What one or more revisions of the store change, in their order.
struct Change {
  bool removed = false;
  Entry entry;
};

/// A replica file as its agent writes it: every state that others see is the whole directory at one revision. Others
/// read it meanwhile. Throws `AccessDirectory::Failure`; what failed left the file as it was. One thread uses an
/// object.
class Replica {
public:
  /// Opens a file that is a replica; Failure (Refused) when it is none.
  explicit Replica(const std::string& file);
  ~Replica();
  Replica(const Replica&) = delete;
  Replica& operator=(const Replica&) = delete;

  /// Makes a new file, tuned, a replica that holds nothing yet.
  static void Make(const std::string& file);
  /// Whether the file is a replica.
  static bool IsReplica(const std::string& file);

  const ReplicaRow& Row() const noexcept { return m_Row; }
  /// Reads the row anew, which another program may have written; whether it is another. Failure (System) when it is
  /// gone.
  bool Reread();

  /// Makes the changes, and the row `after`, in one transaction. Nothing, and false, when the file is no longer at
  /// `Row`.
  bool Apply(const std::vector<Change>& changes, const ReplicaRow& after);

  /// Takes entries of a whole directory, until `ReplaceBy`.
  void BeginReplacement();
  void AddToReplacement(const Entry& entry);
  /// Makes the file hold them and nothing else, with the row `after`, in one transaction of the differences alone.
  /// Returns how many rows had to change.
  std::size_t ReplaceBy(const ReplicaRow& after);

  /// Whether another program has committed anything since this was last asked.
  bool WasTouched();
  /// Whether somebody may have dropped a trigger.
  bool LostGuards();
  /// Whether the name still stands for the file that is open.
  bool IsInPlace() const noexcept;

private:
  struct Statements;
  class Writing;

  std::string m_File;
  AccessDirectory::Database m_Database;
  std::unique_ptr<Statements> m_Statements;
  ReplicaRow m_Row;
  std::string m_Version;
  unsigned long long m_Device = 0;
  unsigned long long m_Inode = 0;
};

} // namespace Sync
