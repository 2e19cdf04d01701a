#include "sync/agent/Synchronisation.h"

#include "directory/Failure.h"
#include "directory/file/FileNames.h"
#include "directory/file/NewFile.h"
#include "sync/store/StoreError.h"

namespace Sync {

using AccessDirectory::Failure;
using AccessDirectory::Quoted;

namespace {

constexpr std::size_t KeysPerPage = 20000;

} // namespace

Synchronised Synchronise(Client& client, Replica& replica, const Current& current) {
  const auto head = ReadHead(client, current.generation);
  if (!head) {
    throw StoreError(StoreError::Reason::Refused,
                     "the store's generation " + std::to_string(current.generation) + " has no head: it is not whole");
  }
  const std::string prefix = GenerationPrefix(client, current.generation);
  RangeQuery query;
  query.key = prefix;
  query.end = EndOfPrefix(prefix);
  query.revision = head->revision; // one state, however long the reading takes
  query.limit = KeysPerPage;
  Synchronised done;
  replica.BeginReplacement();
  for (bool more = true; more;) {
    const Page page = client.Range(query);
    for (const KeyValue& pair : page.pairs) {
      const std::string_view key = std::string_view(pair.key).substr(prefix.size());
      if (key == "head") {
        continue;
      }
      std::string fault;
      const auto entry = ReadEntry(key, pair.value, fault);
      if (!entry) {
        throw StoreError(StoreError::Reason::Refused, "the store's key " + Quoted(pair.key) + " " + fault);
      }
      replica.AddToReplacement(*entry);
      ++done.entries;
    }
    more = page.more && !page.pairs.empty();
    if (more) {
      query.key = page.pairs.back().key + '\0';
    }
  }
  done.changed = replica.ReplaceBy({current.directory, head->cluster, current.generation, head->revision, head->txn});
  return done;
}

Synchronised MakeReplica(Client& client, const std::string& file) {
  const auto current = ReadCurrent(client);
  if (!current) {
    throw Failure(Failure::Kind::Refused,
                  "the store holds no directory under " + Quoted(client.Prefix()) + "; \"sync init\" puts one there");
  }
  const AccessDirectory::NewFile created(file, AccessDirectory::NewFile::Existing::Keep, "join makes new files");
  AccessDirectory::RequireNoRemains(file);
  Replica::Make(created.WorkName());
  Synchronised done;
  {
    Replica replica(created.WorkName());
    done = Synchronise(client, replica, *current);
  }
  created.Publish();
  return done;
}

} // namespace Sync
