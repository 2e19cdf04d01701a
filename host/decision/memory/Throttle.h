#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <vector>

#include "host/decision/memory/KeyedDigest.h"

namespace Host {

/// Slows down the guessing of passwords. Keyed by digests of a presented id together with the client's address, never
/// by an id alone: nobody can lock somebody else out.
///
/// After `failures` within `window_seconds` a pair is blocked for 1 s, and after each further failure for twice as long
/// as before, up to `maximum_delay_seconds`; it is forgotten once the window has passed since the last failure and its
/// block. What was proven is remembered for a day. Both tables have a fixed size: where a place is contended, the entry
/// that ends first gives way.
///
/// Shared by the threads: each place of a table belongs to one of a few locks. Times are milliseconds of a clock that
/// does not go backwards, the caller's.
class Throttle {
public:
  using Milliseconds = std::int64_t;

  /// `failures` 0: never blocks.
  Throttle(unsigned failures, unsigned window_seconds, unsigned maximum_delay_seconds);

  /// Whether any pair may be blocked: nearly never, so that others need not be looked up.
  bool BlocksAny(Milliseconds now) const noexcept { return m_LastBlockEnds.load(std::memory_order_acquire) > now; }
  /// For how long the pair is still blocked; 0: it is not.
  Milliseconds BlockedFor(const Digest& pair, Milliseconds now);
  void Failed(const Digest& pair, Milliseconds now);

  /// That a credential was proven, from an address.
  void Proven(const Digest& credential_and_address, Milliseconds now);
  bool IsProven(const Digest& credential_and_address, Milliseconds now);

private:
  static constexpr std::size_t Places = 8192; // of a table; each holds a few entries
  static constexpr std::size_t EntriesOfPlace = 8;
  static constexpr std::size_t Locks = 64;

  struct Failures {
    Digest key;
    Milliseconds ends = 0; // when the entry may be forgotten; 0: free
    Milliseconds blocked_until = 0;
    unsigned blocks = 0;              // how often it was blocked
    std::vector<Milliseconds> recent; // failures before that, within the window
  };
  struct Proof {
    Digest key;
    Milliseconds ends = 0;
  };
  template <class Entry> using Table = std::vector<std::array<Entry, EntriesOfPlace>>;

  template <class Entry> static Entry* Find(Table<Entry>& table, const Digest& key, Milliseconds now);
  template <class Entry> static Entry& FindOrTake(Table<Entry>& table, const Digest& key, Milliseconds now);
  std::mutex& LockOf(const Digest& key) { return m_Locks[key.first % Places % Locks]; }

  const unsigned m_Failures;
  const Milliseconds m_Window;
  const Milliseconds m_MaximumDelay;
  std::array<std::mutex, Locks> m_Locks;
  Table<Failures> m_Pairs{Places};
  Table<Proof> m_Proofs{Places};
  std::atomic<Milliseconds> m_LastBlockEnds{0}; // no pair is blocked after it
};

} // namespace Host
