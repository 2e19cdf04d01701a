// Self access keys: the store and the callback that stamps outgoing calls with them.

#include "LocalAccessManager.h"

#include <array>

#include "TN_log.h"

namespace LocalAccessManager {

namespace {

constexpr std::uint64_t KeyLifetimeSeconds = 10;
constexpr std::size_t KeyTextBytes = 64;

} // namespace

Tarn::Result_t SelfAccessManager::InitSelfAccessManager(const Perenna::PListDict& /*config*/) {
  return Tarn::RESULT_OK;
}

Tarn::Result_t SelfAccessManager::Flush() {
  const Tarn::AutoMutex l(m_Lock);
  m_SelfAccessKeys.clear();
  return Tarn::RESULT_OK;
}

void SelfAccessManager::CreateSelfAccessKey(Tarn::UUID& id) {
  Tarn::GenRandomValue(id); // before the lock: the random source may take its time
  const Tarn::AutoMutex l(m_Lock);
  // Stamped under the lock, so that the list is in the order of its time stamps.
  m_SelfAccessKeys.emplace_back(id, Tarn::Timestamp());
}

bool SelfAccessManager::ResolveSelfAccessKey(const Tarn::UUID& id) {
  const std::int64_t inow = Tarn::Timestamp().GetCTime();
  const Tarn::AutoMutex l(m_Lock);
  bool result = false;
  m_SelfAccessKeys.remove_if([&](const AccessKeyList::value_type& entry) {
    // Unsigned: a key stamped in the future, the clock having been set back, is of a huge age and expires too.
    const auto age = static_cast<std::uint64_t>(inow) - static_cast<std::uint64_t>(entry.second.GetCTime());
    const bool expired = age > KeyLifetimeSeconds;
    const bool used = !expired && entry.first == id;
    result = result || used;
    return expired || used;
  });
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
