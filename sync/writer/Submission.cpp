#include "sync/writer/Submission.h"

#include <chrono>
#include <optional>
#include <thread>

#include "directory/change/ChangeWriter.h"
#include "sync/store/StoreError.h"
#include "sync/writer/GenerationWriter.h"

namespace Sync {

using AccessDirectory::ChangeConflict;
using AccessDirectory::Failure;
using AccessDirectory::SectionCount;
using Clock = std::chrono::steady_clock;

namespace {

constexpr std::chrono::seconds MostUncertainty(15); // how long an answer that was lost is looked for
constexpr std::chrono::milliseconds Pause(200);

/// Which revision a change has, by the history of heads from the newest back to `base`; nothing when it never came.
std::optional<Revision> FindByHistory(Client& client, Revision generation, const Head& base, const std::string& txn,
                                      Head head) {
  while (head.modified > base.modified) {
    if (head.txn == txn) {
      return head.modified;
    }
    auto before = ReadHead(client, generation, head.modified - 1);
    if (!before) {
      return std::nullopt;
    }
    head = *std::move(before);
  }
  return std::nullopt;
}

/// Commits a change whose head is `head`, and finds out what became of it, whatever the network does: sending it twice
/// does no harm, since its condition holds only once.
Revision CommitOnce(Client& client, Revision generation, const Head& base, const Head& head, const Json& transaction) {
  const auto end = Clock::now() + MostUncertainty;
  for (bool sent = false;; sent = true) {
    try {
      const Outcome outcome = client.Commit(transaction);
      if (outcome.succeeded) {
        return outcome.revision;
      }
      if (!outcome.pairs.empty()) {
        const Head newest = HeadFrom(outcome.pairs.front());
        if (const auto found = FindByHistory(client, generation, base, head.txn, newest)) {
          return *found;
        }
      }
      throw ChangeConflict("another change came first");
    } catch (const StoreError& error) {
      if (error.Why() == StoreError::Reason::Away && Clock::now() < end) {
        std::this_thread::sleep_for(Pause);
        continue;
      }
      if (sent || error.MayBeDone()) {
        throw Failure(Failure::Kind::System, std::string(error.what()) +
                                                 "; whether the change was made is not known: look before it is made "
                                                 "again (its id is " +
                                                 head.txn + ")");
      }
      throw;
    }
  }
}

/// What nobody reads; what cannot be removed now is by whoever writes the next generation.
void RemoveHalfWritten(Client& client, Revision generation) {
  try {
    RemoveGeneration(client, generation);
  } catch (const StoreError&) {
    return;
  }
}

void AddAll(GenerationWriter& writer, const AccessDirectory::Directory& whole) {
  for (std::size_t number = 0; number < SectionCount; ++number) {
    const AccessDirectory::Rows& rows = whole.at(number);
    const std::size_t columns = AccessDirectory::Sections.at(number).columns.size();
    for (std::size_t row = 0; row < rows.Count(); ++row) {
      Entry entry{static_cast<AccessDirectory::SectionNumber>(number), {}};
      for (std::size_t column = 0; column < columns; ++column) {
        entry.texts.emplace_back(rows.At(row, column));
      }
      writer.Add(entry);
    }
  }
}

} // namespace

Submitted Submit(Client& client, Revision generation, const Head& base, const std::vector<Change>& changes) {
  const std::string prefix = GenerationPrefix(client, generation);
  const std::string head_key = HeadKey(client, generation);
  const Head head = NewHead();
  Json operations = Json::array();
  for (const Change& change : changes) {
    const std::string key = prefix + KeyOf(change.entry);
    operations.push_back(change.removed ? DeleteOperation(key) : PutOperation(key, ValueOf(change.entry)));
  }
  operations.push_back(PutOperation(head_key, head.Text()));
  return {generation, CommitOnce(client, generation, base, head,
                                 {{"compare", {UnchangedSince(head_key, base.modified)}},
                                  {"success", std::move(operations)},
                                  {"failure", {GetOperation(head_key)}}})};
}

Submitted SubmitWhole(Client& client, Revision generation, const Head& base, const AccessDirectory::Directory& whole) {
  const auto current = ReadCurrent(client);
  if (!current || current->generation != generation) {
    throw ChangeConflict("another change came first");
  }
  GenerationWriter writer(client, generation + 1);
  Submitted done{writer.Generation(), 0};
  try {
    AddAll(writer, whole);
    writer.Finish();
    const std::string old_head = HeadKey(client, generation);
    Head head = NewHead();
    head.successor = writer.Generation();
    Current next = *current;
    next.generation = writer.Generation();
    done.revision =
        CommitOnce(client, generation, base, head,
                   {{"compare",
                     {UnchangedSince(old_head, base.modified), writer.StillOurs(),
                      UnchangedSince(CurrentKey(client), current->modified)}},
                    {"success", {PutOperation(old_head, head.Text()), PutOperation(CurrentKey(client), TextOf(next))}},
                    {"failure", {GetOperation(old_head)}}});
  } catch (const ChangeConflict&) {
    RemoveHalfWritten(client, writer.Generation());
    throw;
  } catch (const StoreError& error) { // before the switch, or it was certainly not made
    RemoveHalfWritten(client, writer.Generation());
    if (error.Why() == StoreError::Reason::Overtaken) {
      throw ChangeConflict(error.what());
    }
    throw;
  }
  try {
    RemoveOldGenerations(client, writer.Generation());
  } catch (const StoreError&) {
    return done; // the change was made; whoever writes the next generation removes what is left
  }
  return done;
}

} // namespace Sync
