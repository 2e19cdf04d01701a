#include "sync/store/Wire.h"

#include <algorithm>

#include "TN_util.h"
#include "sync/store/StoreError.h"

namespace Sync {

namespace {

[[noreturn]] void Malformed(const std::string& what) {
  throw StoreError(StoreError::Reason::Refused, "the store's answer cannot be understood: " + what);
}

Json Parse(const std::string& text) {
  Json json = Json::parse(text, nullptr, false);
  if (!json.is_object()) {
    Malformed("it is no JSON object");
  }
  return json;
}

/// A 64-bit number, which is a text; 0 when it is left out.
Revision NumberOf(const Json& object, const char* name) {
  const auto found = object.find(name);
  if (found == object.end()) {
    return 0;
  }
  if (found->is_number_integer()) {
    return found->get<Revision>();
  }
  const std::string text = found->is_string() ? found->get<std::string>() : "";
  constexpr std::size_t MostDigits = 18;
  if (text.empty() || text.size() > MostDigits ||
      !std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; })) {
    Malformed(std::string("its ") + name + " is no number");
  }
  return std::stoll(text);
}

bool Flag(const Json& object, const char* name) {
  const auto found = object.find(name);
  return found != object.end() && found->is_boolean() && found->get<bool>();
}

std::string TextOf(const Json& object, const char* name) {
  const auto found = object.find(name);
  return found == object.end() || !found->is_string() ? std::string() : found->get<std::string>();
}

const Json& ObjectIn(const Json& object, const char* name) {
  static const Json s_empty = Json::object();
  const auto found = object.find(name);
  return found == object.end() || !found->is_object() ? s_empty : *found;
}

const Json& ListIn(const Json& object, const char* name) {
  static const Json s_empty = Json::array();
  const auto found = object.find(name);
  return found == object.end() || !found->is_array() ? s_empty : *found;
}

KeyValue PairOf(const Json& pair) {
  if (!pair.is_object()) {
    Malformed("a key is no object");
  }
  return {FromBase64(TextOf(pair, "key")), FromBase64(TextOf(pair, "value")), NumberOf(pair, "mod_revision")};
}

void AppendPairs(const Json& list, std::vector<KeyValue>& pairs) {
  pairs.reserve(pairs.size() + list.size());
  std::transform(list.begin(), list.end(), std::back_inserter(pairs), PairOf);
}

} // namespace

std::string Base64(const std::string& bytes) {
  std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');
  if (Tarn::base64encode(reinterpret_cast<const Tarn::byte_t*>(bytes.data()), static_cast<unsigned>(bytes.size()),
                         text.data(), static_cast<unsigned>(text.size())) == nullptr) {
    Malformed("a value is too long");
  }
  text.pop_back();
  return text;
}

std::string FromBase64(const std::string& text) {
  std::string bytes(text.size(), '\0');
  unsigned count = 0;
  if (!text.empty() && (text.find('\0') != std::string::npos ||
                        Tarn::base64decode(text.c_str(), reinterpret_cast<Tarn::byte_t*>(bytes.data()),
                                           static_cast<unsigned>(bytes.size()), &count) != 0)) {
    Malformed("a value is no base64");
  }
  bytes.resize(count);
  return bytes;
}

std::string EndOfPrefix(std::string prefix) {
  ++prefix.back(); // a prefix ends in "/"
  return prefix;
}

Page ReadPage(const std::string& body) {
  const Json json = Parse(body);
  const Json& header = ObjectIn(json, "header");
  Page page;
  page.cluster = TextOf(header, "cluster_id");
  page.revision = NumberOf(header, "revision");
  page.more = Flag(json, "more");
  AppendPairs(ListIn(json, "kvs"), page.pairs);
  if (page.revision == 0) {
    Malformed("it names no revision");
  }
  return page;
}

Outcome ReadOutcome(const std::string& body) {
  const Json json = Parse(body);
  Outcome outcome;
  outcome.succeeded = Flag(json, "succeeded");
  outcome.revision = NumberOf(ObjectIn(json, "header"), "revision");
  for (const Json& response : ListIn(json, "responses")) {
    AppendPairs(ListIn(ObjectIn(response, "response_range"), "kvs"), outcome.pairs);
  }
  return outcome;
}

WatchMessage ReadWatchMessage(const std::string& line) {
  const Json json = Parse(line);
  WatchMessage message;
  if (json.contains("error")) {
    message.cancelled = true;
    const Json& error = json["error"];
    message.reason = error.is_object() ? TextOf(error, "message") : TextOf(json, "error");
    return message;
  }
  const Json& result = ObjectIn(json, "result");
  message.revision = NumberOf(ObjectIn(result, "header"), "revision");
  message.cancelled = Flag(result, "canceled");
  message.compacted = NumberOf(result, "compact_revision");
  message.reason = TextOf(result, "cancel_reason");
  message.fragment = Flag(result, "fragment");
  for (const Json& event : ListIn(result, "events")) {
    message.events.push_back({TextOf(event, "type") == "DELETE", PairOf(ObjectIn(event, "kv"))});
    if (message.events.back().pair.modified == 0) {
      Malformed("an event names no revision");
    }
  }
  return message;
}

} // namespace Sync
