#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

namespace Host {

/// What every request that asks for a decision comes to.
enum class Outcome { Allowed, Refused, Unauthenticated, Throttled, Malformed, Unavailable };
constexpr unsigned OutcomeCount = 6;

/// The name under which logs, metrics and answers know it: "allowed".
constexpr const char* OutcomeName(Outcome outcome) noexcept {
  constexpr const char* Names[OutcomeCount] = {"allowed",   "refused",   "unauthenticated",
                                               "throttled", "malformed", "unavailable"};
  return Names[static_cast<unsigned>(outcome)];
}

/// The filter that settled a decision.
struct Decider {
  std::string group_id;
  std::string filter;
  std::string action;
};

/// What the directory says about a question, whoever asks it and when. Immutable once made; a cache shares it.
struct Judgement {
  Outcome outcome = Outcome::Unavailable;
  std::string user_id; ///< as presented where it is not proven; of stored bytes, any but NUL
  std::string groups;  ///< of an allowed user: existing groups of valid ids, ascending, joined by commas
  std::string reason;  ///< one sentence without its full stop, for logs and administrators, never for the caller
  std::optional<Decider> decider;
};

/// A judgement, and what the decision log says beside it.
struct Verdict {
  std::shared_ptr<const Judgement> judgement; ///< never null
  std::chrono::system_clock::time_point time;
  std::string request_id;
  std::string address; ///< the client's; empty when unknown
  std::string method;  ///< as received
  std::string path;    ///< without its query; when decisions see queries, with "?" and a keyed digest of it
  unsigned microseconds = 0;
  bool cached = false;
  unsigned retry_after_seconds = 0;        ///< Throttled and Unavailable: when asking again makes sense
  std::optional<bool> credential_accepted; ///< what a check of a credential gave, where the module made one

  Outcome What() const noexcept { return judgement->outcome; }
};

} // namespace Host
