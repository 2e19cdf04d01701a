#include "host/decision/memory/Throttle.h"

#include <algorithm>

namespace Host {

namespace {

constexpr Throttle::Milliseconds Second = 1000;
constexpr Throttle::Milliseconds Day = 86400 * Second;
constexpr unsigned MaximumDoublings = 30; // beyond which the delay is over any limit

} // namespace

Throttle::Throttle(unsigned failures, unsigned window_seconds, unsigned maximum_delay_seconds)
    : m_Failures(failures), m_Window(window_seconds * Second), m_MaximumDelay(maximum_delay_seconds * Second) {}

template <class Entry> Entry* Throttle::Find(Table<Entry>& table, const Digest& key, Milliseconds now) {
  for (Entry& entry : table[key.first % Places]) {
    if (entry.ends > now && entry.key == key) {
      return &entry;
    }
  }
  return nullptr;
}

template <class Entry> Entry& Throttle::FindOrTake(Table<Entry>& table, const Digest& key, Milliseconds now) {
  if (Entry* const found = Find(table, key, now)) {
    return *found;
  }
  auto& place = table[key.first % Places];
  Entry& taken = *std::min_element(place.begin(), place.end(),
                                   [](const Entry& left, const Entry& right) { return left.ends < right.ends; });
  taken = Entry();
  taken.key = key;
  return taken;
}

Throttle::Milliseconds Throttle::BlockedFor(const Digest& pair, Milliseconds now) {
  const std::lock_guard<std::mutex> hold(LockOf(pair));
  const Failures* const entry = Find(m_Pairs, pair, now);
  return entry == nullptr ? 0 : std::max<Milliseconds>(entry->blocked_until - now, 0);
}

void Throttle::Failed(const Digest& pair, Milliseconds now) {
  if (m_Failures == 0) {
    return;
  }
  const std::lock_guard<std::mutex> hold(LockOf(pair));
  Failures& entry = FindOrTake(m_Pairs, pair, now);
  auto& recent = entry.recent;
  if (entry.blocks == 0) {
    recent.erase(std::remove_if(recent.begin(), recent.end(), [&](Milliseconds at) { return at + m_Window <= now; }),
                 recent.end());
    recent.push_back(now);
  }
  if (entry.blocks > 0 || recent.size() >= m_Failures) {
    const Milliseconds delay = Second << std::min(entry.blocks, MaximumDoublings);
    ++entry.blocks;
    recent = {};
    entry.blocked_until = now + std::min(delay, m_MaximumDelay);
    Milliseconds last = m_LastBlockEnds.load(std::memory_order_relaxed);
    while (last < entry.blocked_until &&
           !m_LastBlockEnds.compare_exchange_weak(last, entry.blocked_until, std::memory_order_release)) {
    }
  }
  entry.ends = std::max(entry.blocked_until, now) + m_Window;
}

void Throttle::Proven(const Digest& credential_and_address, Milliseconds now) {
  if (m_Failures == 0) {
    return;
  }
  const std::lock_guard<std::mutex> hold(LockOf(credential_and_address));
  FindOrTake(m_Proofs, credential_and_address, now).ends = now + Day;
}

bool Throttle::IsProven(const Digest& credential_and_address, Milliseconds now) {
  const std::lock_guard<std::mutex> hold(LockOf(credential_and_address));
  return Find(m_Proofs, credential_and_address, now) != nullptr;
}

} // namespace Host
