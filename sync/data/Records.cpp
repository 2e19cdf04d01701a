#include "sync/data/Records.h"

#include <array>

#include <unistd.h>

#include "TN_util.h"
#include "sync/store/StoreError.h"

namespace Sync {

namespace {

[[noreturn]] void Refuse(const KeyValue& pair, const std::string& what) {
  throw StoreError(StoreError::Reason::Refused, "the store's key " + AccessDirectory::Quoted(pair.key) + " " + what);
}

Json ObjectOf(const KeyValue& pair) {
  Json json = Json::parse(pair.value, nullptr, false);
  if (!json.is_object()) {
    Refuse(pair, "holds no JSON object");
  }
  return json;
}

std::string MachineName() {
  std::array<char, 256> name{};
  return gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "?";
}

Revision NumberIn(const Json& json, const char* name) {
  const auto found = json.find(name);
  return found != json.end() && found->is_number_integer() ? found->get<Revision>() : 0;
}

std::string TextIn(const Json& json, const char* name) {
  const auto found = json.find(name);
  return found != json.end() && found->is_string() ? found->get<std::string>() : std::string();
}

} // namespace

std::string NewUuid() {
  Tarn::UUID id;
  Tarn::GenRandomValue(id);
  std::array<char, 37> text{};
  return id.EncodeHex(text.data(), static_cast<unsigned>(text.size()));
}

Head NewHead() {
  std::array<char, Tarn::DateTimeLen + 1> now{};
  Tarn::Timestamp().EncodeString(now.data(), static_cast<unsigned>(now.size()));
  Head head;
  head.txn = NewUuid();
  head.writer = MachineName();
  head.time = now.data();
  return head;
}

std::string Head::Text() const {
  Json json = {{"txn", txn},
               {"writer", AccessDirectory::JsonText(writer)},
               {"time", AccessDirectory::JsonText(time)},
               {"schema", StoreSchema}};
  if (successor != 0) {
    json["successor"] = successor;
  }
  return json.dump();
}

std::string CurrentKey(const Client& client) {
  return client.Prefix() + "current";
}

std::string GenerationPrefix(const Client& client, Revision generation) {
  return client.Prefix() + std::to_string(generation) + "/";
}

std::string HeadKey(const Client& client, Revision generation) {
  return GenerationPrefix(client, generation) + "head";
}

std::string TextOf(const Current& current) {
  return Json({{"generation", current.generation}, {"directory", current.directory}}).dump();
}

Current CurrentFrom(const KeyValue& pair) {
  const Json json = ObjectOf(pair);
  Current current;
  current.generation = NumberIn(json, "generation");
  current.directory = TextIn(json, "directory");
  current.modified = pair.modified;
  Tarn::UUID id;
  if (current.generation <= 0 || !id.DecodeHex(current.directory.c_str())) {
    Refuse(pair, "names no generation of a directory");
  }
  return current;
}

Head HeadFrom(const KeyValue& pair) {
  const Json json = ObjectOf(pair);
  Head head;
  head.txn = TextIn(json, "txn");
  head.writer = TextIn(json, "writer");
  head.time = TextIn(json, "time");
  head.successor = NumberIn(json, "successor");
  head.modified = pair.modified;
  if (NumberIn(json, "schema") != StoreSchema) {
    Refuse(pair, "was written by a newer program");
  }
  Tarn::UUID id;
  if (!id.DecodeHex(head.txn.c_str())) {
    Refuse(pair, "names no change");
  }
  return head;
}

std::optional<Current> ReadCurrent(Client& client) {
  const Page page = client.Range({CurrentKey(client)});
  if (page.pairs.empty()) {
    return std::nullopt;
  }
  return CurrentFrom(page.pairs.front());
}

std::optional<Head> ReadHead(Client& client, Revision generation, Revision at) {
  RangeQuery query{HeadKey(client, generation)};
  query.revision = at;
  const Page page = client.Range(query);
  if (page.pairs.empty()) {
    return std::nullopt;
  }
  Head head = HeadFrom(page.pairs.front());
  head.cluster = page.cluster;
  head.revision = page.revision;
  return head;
}

} // namespace Sync
