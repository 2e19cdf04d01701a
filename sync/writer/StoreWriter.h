#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "directory/change/ChangeWriter.h"
#include "sync/data/Records.h"
#include "sync/replica/Replica.h"
#include "sync/store/Client.h"

namespace Sync {

/// When a change counts as done.
enum class Waiting {
  ForFile, ///< once this machine's file has it, so that whoever made it sees it
  None     ///< once the store has it
};

/// Writes the changes of a replica to its store. A change is made in the file, where it sees the newest state, its
/// differences are taken, and the file is put back: it gets the change from the store, by its agent, like all others.
/// The store takes it only if no other came in between, and once, however often it has to be sent.
class StoreWriter : public AccessDirectory::ChangeWriter {
public:
  StoreWriter(Settings settings, std::string file, Waiting waiting);
  ~StoreWriter() override;

  /// Waits until the file is at the store's newest state. Throws `Failure` when it does not get there: its agent does
  /// not run, or the store is away, or another.
  std::unique_ptr<AccessDirectory::PendingChange> Begin() override;
  bool ModuleMayWrite() override { return false; }

private:
  class Change;
  friend class Change;

  std::unique_ptr<Client> TakeClient();
  void ReturnClient(std::unique_ptr<Client> client);

  const Settings m_Settings;
  const std::string m_File;
  const Waiting m_Waiting;
  std::mutex m_Mutex; // guards what follows
  std::vector<std::unique_ptr<Client>> m_Idle;
};

} // namespace Sync
