#pragma once

#include <functional>
#include <string>

#include "directory/Progress.h"
#include "sync/data/Entry.h"
#include "sync/data/Records.h"
#include "sync/store/Client.h"

namespace Sync {

/// Writes a whole directory as a generation of its own, which nobody reads before `current` names it. In pieces that
/// the store takes, each on the condition that the generation's head is still ours. Throws `StoreError`; what was
/// written then is removed, now or by whoever writes the next generation.
class GenerationWriter {
public:
  /// Claims the first number from `generation` on that nobody has.
  GenerationWriter(Client& client, Revision generation);

  Revision Generation() const noexcept { return m_Generation; }
  const Head& TheHead() const noexcept { return m_Head; }

  void Add(const Entry& entry);
  /// Writes what is left. The generation is whole after it.
  void Finish();

  /// The condition that nobody has touched the generation.
  Json StillOurs() const;

  std::size_t Count() const noexcept { return m_Count; }

private:
  void Write();

  Client& m_Client;
  Revision m_Generation;
  Head m_Head;
  std::vector<std::pair<std::string, std::string>> m_Pending;
  std::size_t m_PendingBytes = 0;
  std::size_t m_MostOperations;
  std::size_t m_Count = 0;
};

/// Removes a generation in pieces of at most a thousand keys, its head last, so that the store is never busy with it
/// for long. Throws `StoreError`.
void RemoveGeneration(Client& client, Revision generation);

/// Removes what generations older than `current` there are: replaced ones, and half-written ones whose writer ended.
void RemoveOldGenerations(Client& client, Revision current);

} // namespace Sync
