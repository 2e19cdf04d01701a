#pragma once

#include <vector>

#include "directory/file/Database.h"
#include "sync/replica/Replica.h"

namespace Sync {

/// Watches what a connection does to the tables of the directory, through temporary triggers that only it has: each key
/// with what stood there before it was first touched.
class Touched {
public:
  /// Before the transaction begins. Throws `AccessDirectory::Failure`.
  explicit Touched(AccessDirectory::Database& database);

  /// What is other than before; what came and went again is not. Refuses values that are no text.
  std::vector<Change> Differences() const;

private:
  AccessDirectory::Database& m_Database;
};

} // namespace Sync
