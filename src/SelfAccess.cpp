// Self access keys: the store and the callback that stamps outgoing calls with them.

#include "LocalAccessManager.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>
#include <limits>

#include "TN_log.h"

namespace LocalAccessManager {

namespace {

constexpr std::uint64_t KeyLifetimeSeconds = 10;
constexpr std::size_t KeyTextBytes = 64;
// Together they cost half of what they do one by one, and a resolve finds few missing.
constexpr std::size_t KeysIndexedTogether = 256;

std::uint64_t Prefix(const Tarn::UUID& key) noexcept {
  std::uint64_t prefix = 0;
  static_assert(sizeof prefix <= Tarn::UUID_Length);
  std::memcpy(&prefix, key.Value(), sizeof prefix);
  return prefix;
}

/// Brings the entries behind those that the index holds into it. An index that a failing allocation interrupts is whole
/// as far as it goes.
template <class Keys, class Index> void IndexTheLast(Keys& keys, Index& index) {
  const auto missing = static_cast<std::ptrdiff_t>(keys.size() - index.size());
  for (auto entry = std::prev(keys.end(), missing); entry != keys.end(); ++entry) {
    index.emplace(Prefix(entry->first), entry);
  }
}

} // namespace

Tarn::Result_t SelfAccessManager::InitSelfAccessManager(const Perenna::PListDict& /*config*/) {
  return Tarn::RESULT_OK;
}

Tarn::Result_t SelfAccessManager::Flush() {
  const Tarn::AutoMutex l(m_Lock);
  m_Index.clear();
  m_SelfAccessKeys.clear();
  return Tarn::RESULT_OK;
}

void SelfAccessManager::CreateSelfAccessKey(Tarn::UUID& id) {
  Tarn::GenRandomValue(id); // before the lock: the random source may take its time
  const Tarn::AutoMutex l(m_Lock);
  // Stamped under the lock, so that the list is in the order of its time stamps while the clock is not set back.
  const Tarn::Timestamp now;
  m_InOrder = m_SelfAccessKeys.empty() || (m_InOrder && m_SelfAccessKeys.back().second.GetCTime() <= now.GetCTime());
  m_SelfAccessKeys.emplace_back(id, now);
  if (m_SelfAccessKeys.size() - m_Index.size() >= KeysIndexedTogether) {
    IndexTheLast(m_SelfAccessKeys, m_Index);
  }
}

bool SelfAccessManager::ResolveSelfAccessKey(const Tarn::UUID& id) {
  const std::int64_t inow = Tarn::Timestamp().GetCTime();
  const Tarn::AutoMutex l(m_Lock);
  // In order and none of the future: behind the first that has not expired none has.
  const bool old_first = m_InOrder && (m_SelfAccessKeys.empty() || m_SelfAccessKeys.back().second.GetCTime() <= inow);
  std::int64_t latest = std::numeric_limits<std::int64_t>::min();
  m_InOrder = true;
  for (auto entry = m_SelfAccessKeys.begin(); entry != m_SelfAccessKeys.end();) {
    const std::int64_t issued = entry->second.GetCTime();
    // Unsigned: a key stamped in the future, the clock having been set back, is of a huge age and expires too.
    if (static_cast<std::uint64_t>(inow) - static_cast<std::uint64_t>(issued) > KeyLifetimeSeconds) {
      auto [same, last] = m_Index.equal_range(Prefix(entry->first));
      same = std::find_if(same, last, [&](const auto& indexed) { return indexed.second == entry; });
      if (same != last) {
        m_Index.erase(same);
      }
      entry = m_SelfAccessKeys.erase(entry);
    } else if (old_first) {
      break;
    } else {
      m_InOrder = m_InOrder && latest <= issued;
      latest = issued;
      ++entry;
    }
  }
  IndexTheLast(m_SelfAccessKeys, m_Index);
  bool result = false;
  auto [found, last] = m_Index.equal_range(Prefix(id));
  while (found != last) {
    const auto entry = found->second;
    if (entry->first == id) {
      result = true;
      m_SelfAccessKeys.erase(entry);
      found = m_Index.erase(found);
    } else {
      ++found;
    }
  }
  return result;
}

SelfAuthRestCallback::SelfAuthRestCallback() = default;
SelfAuthRestCallback::~SelfAuthRestCallback() = default;

Tarn::Result_t SelfAuthRestCallback::Call(Perenna::BasicRestEntryCall& call_params) {
  SelfAccessManager* mgr = nullptr;
  if (!GetSelfAccessManager(mgr)) {
    Tarn::DefaultLogSink().Error("Unable to request self-access key.\n");
    return Tarn::RESULT_OK;
  }
  Tarn::UUID id;
  mgr->CreateSelfAccessKey(id);
  std::array<char, KeyTextBytes> buf{};
  call_params.RequestHeaders.insert({Strings::SelfCallbackId, id.EncodeHex(buf.data(), buf.size())});
  return Tarn::RESULT_OK;
}

} // namespace LocalAccessManager
