#pragma once

#include <functional>
#include <memory>
#include <string>

#include "directory/Failure.h"
#include "directory/file/Database.h"

namespace AccessDirectory {

/// Another change came first: nothing of this one stays, and it has to be made again from what is there now.
class ChangeConflict : public Failure {
public:
  explicit ChangeConflict(const std::string& message) : Failure(Kind::System, message) {}
};

/// A change that is being made: what is done with its database stays only when `Commit` returns. One thread uses it.
class PendingChange {
public:
  virtual ~PendingChange() = default;
  PendingChange() = default;
  PendingChange(const PendingChange&) = delete;
  PendingChange& operator=(const PendingChange&) = delete;

  /// In a transaction; sees what the change has done so far, and nothing of others'.
  virtual Database& TheDatabase() = 0;
  /// Throws `ChangeConflict`, and `Failure` for everything else.
  virtual void Commit() = 0;
};

/// Where changes of a directory go: into its file, or, when that is a replica, into the store that it is made from.
/// Thread-safe.
class ChangeWriter {
public:
  virtual ~ChangeWriter() = default;
  ChangeWriter() = default;
  ChangeWriter(const ChangeWriter&) = delete;
  ChangeWriter& operator=(const ChangeWriter&) = delete;

  /// Begins a change. Throws `Failure`: a file that is no replica may stay locked, a store may be away.
  virtual std::unique_ptr<PendingChange> Begin() = 0;

  /// Whether the access module's own operations may change the file. They must not even be tried on a replica: some
  /// answer that all is well when the file refuses.
  virtual bool ModuleMayWrite() = 0;

  /// Makes a change in one step. `change` may run several times, when others come first.
  void Write(const std::function<void(Database& database)>& change);
};

/// Changes go into the file. One that is a replica is refused: nothing here knows its store.
class FileWriter : public ChangeWriter {
public:
  explicit FileWriter(std::string file) : m_File(std::move(file)) {}

  std::unique_ptr<PendingChange> Begin() override;
  bool ModuleMayWrite() override;

private:
  std::string m_File;
};

} // namespace AccessDirectory
