#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>

#include "host/decision/memory/KeyedDigest.h"
#include "host/decision/Verdict.h"

namespace Host {

/// Judgements that hold as long as the directory does not change, by the digest of everything that went into them.
/// Bounded: what was not asked for while half the capacity was filled anew makes room. One thread's own.
class DecisionCache {
public:
  struct Entry {
    std::shared_ptr<const Judgement> judgement;
    std::string proven_from;       ///< the client's address from which it was last remembered as proven
    std::int64_t proven_until = 0; ///< when that has to be remembered again, in the throttle's milliseconds
  };

  /// `capacity` 0: keeps nothing.
  explicit DecisionCache(std::size_t capacity) : m_Half((capacity + 1) / 2) {}

  /// The entry, or null. Valid until the next call of an operation.
  Entry* Find(const Digest& question);
  void Keep(const Digest& question, Entry entry);
  void Clear();

private:
  using Generation = std::unordered_map<Digest, Entry, DigestHash>;

  std::size_t m_Half;
  Generation m_Young;
  Generation m_Old; // gives an entry back to the young when it is asked for; dropped when the young are too many
};

} // namespace Host
