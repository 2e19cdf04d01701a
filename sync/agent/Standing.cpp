#include "sync/agent/Standing.h"

#include "sync/store/StoreError.h"

namespace Sync {

using AccessDirectory::Quoted;
using Course = Standing::Course;

namespace {

Standing Stop(const std::string& reason) {
  return {Course::Stop, reason, {}};
}

/// The head of the file's generation at the file's revision, by the store's history.
Standing ByHistory(Client& client, const ReplicaRow& row, const Current& current) {
  std::optional<Head> then;
  try {
    then = ReadHead(client, row.generation, row.revision);
  } catch (const StoreError& error) {
    if (error.Why() == StoreError::Reason::Future) {
      return Stop("the store is behind this file, whose revision is " + std::to_string(row.revision) +
                  ": it was restored from an older backup, or is another");
    }
    if (error.Why() != StoreError::Reason::Compacted) {
      throw;
    }
    return {Course::Synchronise, "the store no longer keeps the changes since revision " + std::to_string(row.revision),
            current};
  }
  if (!then || then->txn != row.head_txn) {
    return Stop("the store's history at revision " + std::to_string(row.revision) +
                " is not this file's: it was restored from a backup and changed since, or is another");
  }
  return {Course::Follow, {}, current};
}

} // namespace

Standing StandingOf(Client& client, const ReplicaRow& row) {
  const auto current = ReadCurrent(client);
  if (!current) {
    return Stop("the store holds no directory under " + Quoted(client.Prefix()) + ": it was emptied, or is another");
  }
  if (row.directory.empty()) {
    return {Course::Synchronise, "the file holds nothing yet", *current};
  }
  if (current->directory != row.directory) {
    return Stop("the store holds the directory " + current->directory + ", this file is of " + row.directory);
  }
  const auto head = ReadHead(client, current->generation);
  if (!head) {
    return Stop("the store's generation " + std::to_string(current->generation) + " has no head: it is not whole");
  }
  if (head->revision < row.revision) {
    return Stop("the store's revision is " + std::to_string(head->revision) + ", behind this file's " +
                std::to_string(row.revision) + ": it was restored from an older backup, or is another");
  }
  if (current->generation == row.generation && head->modified <= row.revision) { // needs no history
    return head->txn == row.head_txn
               ? Standing{Course::Follow, {}, *current}
               : Stop("the store's last change is not the one that this file ends with: it was restored from a backup, "
                      "or is another");
  }
  Standing standing = ByHistory(client, row, *current);
  if (standing.course == Course::Follow && current->generation != row.generation) {
    standing.course = Course::Synchronise;
    standing.reason = "the whole directory was replaced";
  }
  return standing;
}

} // namespace Sync
