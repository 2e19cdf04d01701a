#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace Tool {

/// Ways past a proxy's question, or past what the answer says.
enum class Hole {
  Path,
  Unasked,
  Method,
  Question,
  Certificate,
  CredentialsTwice,
  Identity,
  IdentityAlias,
  IdentityLost,
  MethodOverride,
  TargetOverride,
  ClientAddress,
  Upgrade,
  Smuggling,
  Splitting
};

/// What is known of a kind of hole.
struct HoleFacts {
  Hole hole;
  const char* name;    ///< as JSON has it
  const char* meaning; ///< a clause: what can be done through it
};
const HoleFacts& FactsOf(Hole hole);

/// The proxies for which remedies are known, as `--proxy` takes them.
const std::vector<std::string>& KnownProxies();

/// The line of configuration that closes the hole; `proxy`: one of `KnownProxies`.
std::string RemedyFor(Hole hole, const std::string& proxy);

} // namespace Tool
