#pragma once

#include <map>
#include <mutex>
#include <string>
#include <utility>

#include "TN_util.h"

namespace Host {

/// The calls that the host makes to itself on behalf of a user. The module's key store says whether a key is genuine,
/// fresh and unused; this says for whom it was issued. The lock guards the map and is not held while the store is
/// asked; any thread may call any operation.
class SelfCalls {
public:
  /// Stamps an outgoing call with a new key that will stand for `user_id`, and returns it in UUID text form. Throws
  /// `AccessDirectory::Failure` (System) without a key store.
  std::string Stamp(const std::string& user_id);

  /// The user whom a key of that text form stands for; true once for each key.
  bool Resolve(const std::string& key, std::string& user_id);

private:
  using Seconds = std::int64_t;

  std::mutex m_Mutex;
  std::map<Tarn::UUID, std::pair<std::string, Seconds>> m_Users; // with the time of issue
};

} // namespace Host
