#include "sync/agent/Follower.h"

#include "sync/data/Records.h"
#include "sync/store/StoreError.h"

namespace Sync {

namespace {

// Of changes that wait, before they are applied: a bound on memory and on how long others wait for the file.
constexpr std::size_t MostChanges = 20000;

} // namespace

Follower::Follower(Client& client, Replica& replica)
    : m_Replica(replica), m_Prefix(GenerationPrefix(client, replica.Row().generation)),
      m_Stream(client.Watch(m_Prefix, replica.Row().revision + 1)), m_After(replica.Row()) {}

Follower::End Follower::Step(std::chrono::milliseconds patience, int descriptor) {
  End end = End::None;
  auto line = m_Stream->Line(patience, descriptor);
  while (line && end == End::None) {
    m_Heard = true;
    end = Take(*line);
    line.reset();
    if (end == End::None && m_Changes.size() < MostChanges && (m_Stream->HasLine() || !m_Fragments.empty())) {
      line = m_Stream->Line(std::chrono::milliseconds(m_Fragments.empty() ? 0 : 1000), descriptor);
    }
  }
  if (const End flushed = Flush(); flushed != End::None) {
    return flushed;
  }
  if (end == End::None && !m_Stream->Ended().empty()) {
    m_Reason = m_Stream->Ended();
    return End::Lost;
  }
  return end;
}

Follower::End Follower::Take(const std::string& line) {
  WatchMessage message = ReadWatchMessage(line);
  if (message.cancelled) {
    m_Reason = message.compacted != 0 ? "the changes that the file lacks are no longer kept"
                                      : "the member ended the stream: " + AccessDirectory::Shown(message.reason);
    return End::Lost;
  }
  m_Fragments.insert(m_Fragments.end(), std::make_move_iterator(message.events.begin()),
                     std::make_move_iterator(message.events.end()));
  if (message.fragment) {
    return End::None;
  }
  const std::vector<Event> events = std::exchange(m_Fragments, {});
  return TakeEvents(events);
}

Follower::End Follower::TakeEvents(const std::vector<Event>& events) {
  for (auto event = events.begin(); event != events.end();) {
    const Revision revision = event->pair.modified;
    bool replaced = false;
    for (; event != events.end() && event->pair.modified == revision; ++event) {
      if (revision <= m_After.revision) {
        continue; // repeated, or part of what a full synchronisation has brought
      }
      const std::string_view key = std::string_view(event->pair.key).substr(m_Prefix.size());
      if (key == "head") {
        if (event->deleted) {
          m_Reason = "the generation was removed";
          return End::Replaced;
        }
        const Head head = HeadFrom(event->pair);
        m_After.head_txn = head.txn;
        replaced = head.successor != 0;
        continue;
      }
      std::string fault;
      // A deleted key comes without its value; the columns of the key are all that counts.
      const bool has_value = !event->deleted;
      auto entry = has_value ? ReadEntry(key, event->pair.value, fault) : ReadEntryKey(key, fault);
      if (!entry) {
        throw StoreError(StoreError::Reason::Refused,
                         "the store's key " + AccessDirectory::Quoted(event->pair.key) + " " + fault);
      }
      m_Changes.push_back({event->deleted, *std::move(entry)});
    }
    m_After.revision = std::max(m_After.revision, revision);
    if (replaced) { // what comes after it is the removal of this generation
      return End::Replaced;
    }
  }
  return End::None;
}

Follower::End Follower::Flush() {
  if (m_After.revision == m_Replica.Row().revision) {
    return End::None;
  }
  const std::vector<Change> changes = std::exchange(m_Changes, {});
  if (!m_Replica.Apply(changes, m_After)) {
    m_Reason = "another program has written the file's row";
    return End::Overtaken;
  }
  return End::None;
}

} // namespace Sync
