#include "LocalAccessManager.h"

#include <atomic>

namespace LocalAccessManager {

namespace Strings {
const std::string LocalAccessManager = "LocalAccessManager";
const std::string DatabaseFilename = "DatabaseFilename";
const std::string AuthRealm = "AuthRealm";
const std::string PathFilterBypass = "PathFilterBypass";
const std::string AnonymousUserId = "AnonymousUserId";
const std::string SelfCallbackId = "x-pn-SelfCallbackId";
const std::string user_id = "user_id";
const std::string create_user = "create_user";
const std::string create_date = "create_date";
const std::string password = "password";
const std::string certificate = "certificate";
const std::string auth_method = "auth_method";
const std::string auth_value = "auth_value";
const std::string plain_pw = "plain_pw";
const std::string sha256 = "sha256";
const std::string tls_client_certificate = "tls_client_certificate";
const std::string group_id = "group_id";
const std::string group_name = "group_name";
const std::string method = "method";
const std::string filter = "filter";
const std::string action = "action";
const std::string users = "users";
const std::string groups = "groups";
const std::string filters = "filters";
const std::string path = "path";
const std::string request_url = "request_url";
} // namespace Strings

namespace {

// Serialises the creation of both singletons; taken nowhere else.
Tarn::Mutex s_lock;

// Each moves once from null to its object, under s_lock, and is never deleted: other threads may use it until the
// process ends. Atomic, since the first test of an Init function and the Get functions read without the lock.
std::atomic<UserManager*> s_usermanager{nullptr};
std::atomic<SelfAccessManager*> s_self_access_manager{nullptr};

/// Creates the singleton unless it exists and gives it the module's section of the configuration. It is published
/// before it is initialised and stays published when that fails, so that only the creating call reports the failure.
template <class Manager>
Tarn::Result_t CreateOnce(std::atomic<Manager*>& singleton,
                          Tarn::Result_t (Manager::*initialise)(const Perenna::PListDict&),
                          const Perenna::PListDict& dict) {
  if (singleton.load(std::memory_order_acquire) != nullptr) {
    return Tarn::RESULT_OK;
  }
  const Tarn::AutoMutex l(s_lock);
  if (singleton.load(std::memory_order_relaxed) != nullptr) {
    return Tarn::RESULT_OK;
  }
  auto* const manager = new Manager;
  singleton.store(manager, std::memory_order_release);
  return (manager->*initialise)(dict.GetDict(Strings::LocalAccessManager));
}

template <class Manager> bool HandOut(const std::atomic<Manager*>& singleton, Manager*& p) {
  Manager* const manager = singleton.load(std::memory_order_acquire);
  if (manager == nullptr) {
    return false;
  }
  p = manager;
  return true;
}

} // namespace

Tarn::Result_t InitUserManager(const Perenna::PListDict& dict) {
  return CreateOnce(s_usermanager, &UserManager::InitUserManager, dict);
}

bool GetUserManager(UserManager*& p) {
  return HandOut(s_usermanager, p);
}

Tarn::Result_t InitSelfAccessManager(const Perenna::PListDict& dict) {
  return CreateOnce(s_self_access_manager, &SelfAccessManager::InitSelfAccessManager, dict);
}

bool GetSelfAccessManager(SelfAccessManager*& p) {
  return HandOut(s_self_access_manager, p);
}

} // namespace LocalAccessManager
