#include "sync/store/Client.h"

#include <fstream>
#include <random>

#include "directory/credential/Secret.h"
#include "directory/text/Text.h"
#include "sync/store/StoreError.h"

namespace Sync {

using Reason = StoreError::Reason;
using std::chrono::milliseconds;

namespace {

constexpr milliseconds ReadPatience(2500);
constexpr milliseconds PagePatience(30000); // of many keys
constexpr milliseconds CommitPatience(5000);
constexpr std::size_t Rounds = 2; // over all members, before the store counts as away

// What the store's answers say, beside their status (google.rpc.Code).
constexpr int CodeUnavailable = 14;
constexpr int CodeDeadline = 4;
constexpr int CodeUnauthenticated = 16;
constexpr long StatusTooLarge = 413;
constexpr long StatusServerError = 500;
constexpr long StatusFine = 200;

bool Holds(const std::string& text, const char* part) {
  return text.find(part) != std::string::npos;
}

/// The store's own words for a failure.
struct Fault {
  std::string message;
  int code = 0;
};

std::string TextIn(const Json& json, const char* name) {
  const auto found = json.is_object() ? json.find(name) : json.end();
  return found != json.end() && found->is_string() ? found->get<std::string>() : std::string();
}

/// {"message", "code"}, also within "error", which may be a text; whatever else a proxy between may send.
Fault FaultOf(const HttpAnswer& answer) {
  Json json = Json::parse(answer.body, nullptr, false);
  if (json.is_object() && json.contains("error") && json["error"].is_object()) {
    json = Json(json["error"]);
  }
  Fault fault;
  fault.message = TextIn(json, "message");
  fault.message = fault.message.empty() ? TextIn(json, "error") : fault.message;
  if (const auto code = json.is_object() ? json.find("code") : json.end();
      code != json.end() && code->is_number_integer()) {
    fault.code = code->get<int>();
  }
  if (fault.message.empty()) {
    fault.message = "HTTP status " + std::to_string(answer.status);
  }
  return fault;
}

bool IsOfTheMember(const HttpAnswer& answer, const Fault& fault) {
  return fault.code == CodeUnavailable || fault.code == CodeDeadline ||
         (answer.status >= StatusServerError && fault.code == 0) || Holds(fault.message, "no leader") ||
         Holds(fault.message, "timed out") || Holds(fault.message, "leader changed") ||
         Holds(fault.message, "not capable");
}

bool WantsToken(const Fault& fault) {
  return fault.code == CodeUnauthenticated || Holds(fault.message, "invalid auth token") ||
         Holds(fault.message, "revision of auth store is old") || Holds(fault.message, "user name is empty");
}

[[noreturn]] void Throw(const HttpAnswer& answer, const Fault& fault) {
  Reason reason = Reason::Refused;
  if (Holds(fault.message, "has been compacted")) {
    reason = Reason::Compacted;
  } else if (Holds(fault.message, "future revision")) {
    reason = Reason::Future;
  } else if (answer.status == StatusTooLarge || Holds(fault.message, "too many operations") ||
             Holds(fault.message, "too large") || Holds(fault.message, "larger than max")) {
    reason = Reason::TooLarge;
  }
  throw StoreError(reason, "the store refused: " + AccessDirectory::Shown(fault.message));
}

/// The first line of the file.
AccessDirectory::Secret ReadPassword(const std::string& file) {
  AccessDirectory::Secret password;
  std::ifstream in(file);
  char c = 0;
  while (in.get(c) && c != '\n') {
    if (!password.Append(c)) {
      break;
    }
  }
  if (password.Text().empty()) {
    throw StoreError(Reason::Refused, "Sync.PasswordFile " + AccessDirectory::Quoted(file) + " holds no password");
  }
  if (!AccessDirectory::JsonText(password.Text()).is_string()) {
    throw StoreError(Reason::Refused, "Sync.PasswordFile " + AccessDirectory::Quoted(file) + " is not UTF-8");
  }
  return password;
}

/// Machines that start together do not all ask the same member.
std::size_t RandomBelow(std::size_t bound) {
  std::random_device device;
  return device() % bound;
}

} // namespace

Client::Client(Settings settings)
    : m_Settings(std::move(settings)), m_Transport(m_Settings), m_Member(RandomBelow(m_Settings.endpoints.size())) {}

Client::~Client() = default;

void Client::NextMember() {
  m_Member = (m_Member + 1) % m_Settings.endpoints.size();
  m_Token.clear(); // another member may not know it yet
}

/// The answer's body, or nothing and why, when another member should be asked.
std::optional<std::string> Client::Try(const std::string& path, const std::string& body, milliseconds patience,
                                       std::string& reason) {
  for (bool again = false;; again = true) {
    if (m_Token.empty() && !m_Settings.user.empty()) {
      Authenticate();
    }
    HttpAnswer answer = m_Transport.Post(Member() + path, body, m_Token, patience);
    if (!answer.arrived) {
      reason = answer.body;
      return std::nullopt;
    }
    if (answer.status == StatusFine) {
      return std::move(answer.body);
    }
    const Fault fault = FaultOf(answer);
    if (!again && !m_Settings.user.empty() && WantsToken(fault)) {
      m_Token.clear();
      continue;
    }
    if (IsOfTheMember(answer, fault)) {
      reason = fault.message;
      return std::nullopt;
    }
    Throw(answer, fault);
  }
}

std::string Client::Call(const std::string& path, const std::string& body, milliseconds patience) {
  std::string reason;
  for (std::size_t i = 0; i < Rounds * m_Settings.endpoints.size(); ++i) {
    try {
      if (auto answer = Try(path, body, patience, reason)) {
        return *std::move(answer);
      }
    } catch (const StoreError& error) {
      if (error.Why() != Reason::Away) {
        throw i == 0 ? error : error.AfterALostAnswer();
      }
      reason = error.what();
    }
    NextMember();
  }
  throw StoreError(Reason::Away, "the store is away: " + AccessDirectory::Shown(reason));
}

void Client::Authenticate() {
  const AccessDirectory::Secret password = ReadPassword(m_Settings.password_file);
  std::string body = Json({{"name", m_Settings.user}, {"password", password.Text()}}).dump();
  const HttpAnswer answer = m_Transport.Post(Member() + "/v3/auth/authenticate", body, "", ReadPatience);
  body.assign(body.size(), '\0');
  if (!answer.arrived) {
    throw StoreError(Reason::Away, answer.body);
  }
  if (answer.status != StatusFine) {
    const Fault fault = FaultOf(answer);
    throw StoreError(IsOfTheMember(answer, fault) ? Reason::Away : Reason::Refused,
                     "the store does not take the credentials of the user " + AccessDirectory::Quoted(m_Settings.user) +
                         ": " + AccessDirectory::Shown(fault.message));
  }
  const Json json = Json::parse(answer.body, nullptr, false);
  m_Token = TextIn(json, "token");
  if (m_Token.empty() || Holds(m_Token, "\n") || Holds(m_Token, "\r")) {
    m_Token.clear();
    throw StoreError(Reason::Refused, "the store gave no token");
  }
}

Page Client::Range(const RangeQuery& query) {
  Json body = {{"key", Base64(query.key)}};
  if (!query.end.empty()) {
    body["range_end"] = Base64(query.end);
  }
  if (query.revision > 0) {
    body["revision"] = std::to_string(query.revision);
  }
  if (query.limit > 0) {
    body["limit"] = std::to_string(query.limit);
  }
  if (query.keys_only) {
    body["keys_only"] = true;
  }
  return ReadPage(Call("/v3/kv/range", body.dump(), query.end.empty() ? ReadPatience : PagePatience));
}

Outcome Client::Commit(const Json& transaction) {
  return ReadOutcome(Call("/v3/kv/txn", transaction.dump(), CommitPatience));
}

std::unique_ptr<Stream> Client::Watch(const std::string& prefix, Revision first) {
  const Json body = {{"create_request",
                      {{"key", Base64(prefix)},
                       {"range_end", Base64(EndOfPrefix(prefix))},
                       {"start_revision", std::to_string(first)},
                       {"progress_notify", true},
                       {"fragment", true}}}};
  return std::make_unique<Stream>(m_Settings, Member() + "/v3/watch", body.dump(), m_Token);
}

Json PutOperation(const std::string& key, const std::string& value) {
  return {{"request_put", {{"key", Base64(key)}, {"value", Base64(value)}}}};
}

Json DeleteOperation(const std::string& key, const std::string& end) {
  Json range = {{"key", Base64(key)}};
  if (!end.empty()) {
    range["range_end"] = Base64(end);
  }
  return {{"request_delete_range", std::move(range)}};
}

Json GetOperation(const std::string& key) {
  return {{"request_range", {{"key", Base64(key)}}}};
}

Json UnchangedSince(const std::string& key, Revision revision) {
  return {{"key", Base64(key)}, {"target", "MOD"}, {"result", "EQUAL"}, {"mod_revision", std::to_string(revision)}};
}

} // namespace Sync
