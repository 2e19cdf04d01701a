// /access/batch: several calls, each made by the host to itself on behalf of the caller.

#include "PN_HTTP.h"
#include "host/administration/SelfClient.h"
#include "host/administration/operation/Operations.h"

namespace Host {

using AccessDirectory::Json;
using AccessDirectory::Quoted;

namespace {

constexpr std::size_t MostCalls = 100;
constexpr std::string_view Beginning = "/access/";
constexpr std::string_view ItsOwnPath = "/access/batch";

struct Item { // NOLINT(bugprone-exception-escape): moving JSON allocates nothing
  std::string method;
  std::string path;
  Json body;
};

/// A call of the administration, by the caller, to this host: nothing else can be said in an item.
Item ItemOf(const Call& call, const Json& json, std::size_t number) {
  std::string where = "item ";
  where.append(std::to_string(number)).append(": ");
  Item item;
  if (!json.is_object()) {
    Refuse(400, where + "it is not an object");
  }
  for (const auto& [name, value] : json.items()) {
    if (name == "body") {
      item.body = value;
    } else if (name != "method" && name != "path") {
      Refuse(400, where + Quoted(name) + " is an unknown member; known are: method, path, body");
    } else if (!value.is_string()) {
      Refuse(400, where + Quoted(name) + " is not a text");
    } else {
      (name == "path" ? item.path : item.method) = value.get<std::string>();
    }
  }
  Perenna::Method_t method = Perenna::METH_MAX;
  if (!Perenna::StringToMethod(item.method, method)) {
    Refuse(400, where + "it has no known method");
  }
  if (const std::string fault = call.context.target_form.Fault(item.path); !fault.empty()) {
    Refuse(400, where + "its path is not in normal form: " + fault);
  }
  if (item.path.compare(0, Beginning.size(), Beginning) != 0 || PathOf(item.path) == ItsOwnPath) {
    Refuse(400, where + "its path is none of the administration, or a batch");
  }
  return item;
}

} // namespace

Reply Batch(Call& call) {
  if (call.body.size() > MostCalls) {
    Refuse(400, "a batch has at most " + std::to_string(MostCalls) + " items");
  }
  std::vector<Item> items; // all are looked at before the first is done
  for (const Json& json : call.body) {
    items.push_back(ItemOf(call, json, items.size()));
  }
  SelfClient client(call.context.listening(), call.context.configuration);
  Json answers = Json::array();
  for (const Item& item : items) {
    SelfClient::Answer answer;
    for (int attempt = 0; attempt < 2 && (attempt == 0 || answer.status == 401); ++attempt) {
      try {
        answer = client.Call(item.method, item.path, item.body, call.context.decisions.self_calls.Stamp(call.caller));
      } catch (const Refusal& refusal) { // what was done before it is told
        answer = {refusal.What().status, {{"status", refusal.What().status}, {"detail", refusal.What().detail}}};
      }
    }
    answers.push_back({{"status", answer.status}, {"body", std::move(answer.body)}});
  }
  return {200, std::move(answers)};
}

} // namespace Host
