#include "host/caller/SelfCalls.h"

#include "LocalAccessManager.h"
#include "directory/Failure.h"

namespace Host {

namespace {

constexpr std::int64_t LifetimeSeconds = 11; // the store's own limit is 10, in whole seconds

} // namespace

std::string SelfCalls::Stamp(const std::string& user_id) {
  Perenna::BasicRestEntryCall call(Perenna::METH_GET);
  LocalAccessManager::SelfAuthRestCallback().Call(call);
  const auto stamped = call.RequestHeaders.find(LocalAccessManager::Strings::SelfCallbackId);
  Tarn::UUID id;
  if (stamped == call.RequestHeaders.end() || !id.DecodeHex(stamped->second.c_str())) {
    throw AccessDirectory::Failure(AccessDirectory::Failure::Kind::System, "there is no store of self access keys");
  }
  const Seconds now = Tarn::Timestamp().GetCTime();
  const std::lock_guard<std::mutex> hold(m_Mutex);
  for (auto entry = m_Users.begin(); entry != m_Users.end();) { // keys that were never used
    entry = now - entry->second.second > LifetimeSeconds ? m_Users.erase(entry) : std::next(entry);
  }
  m_Users[id] = {user_id, now};
  return stamped->second;
}

bool SelfCalls::Resolve(const std::string& key, std::string& user_id) {
  Tarn::UUID id;
  LocalAccessManager::SelfAccessManager* store = nullptr;
  if (key.find('\0') != std::string::npos || !id.DecodeHex(key.c_str()) ||
      !LocalAccessManager::GetSelfAccessManager(store) || !store->ResolveSelfAccessKey(id)) {
    return false;
  }
  const std::lock_guard<std::mutex> hold(m_Mutex);
  const auto issued = m_Users.find(id);
  if (issued == m_Users.end()) {
    return false;
  }
  user_id = std::move(issued->second.first);
  m_Users.erase(issued);
  return true;
}

} // namespace Host
