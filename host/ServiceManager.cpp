#include "host/ServiceManager.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace Host {

ServiceManager::ServiceManager() {
  // The process has one thread yet.
  const char* const socket = std::getenv("NOTIFY_SOCKET"); // NOLINT(concurrency-mt-unsafe)
  if (socket != nullptr && (*socket == '/' || *socket == '@') && std::strlen(socket) < sizeof(sockaddr_un::sun_path)) {
    m_Socket = socket;
    if (m_Socket.front() == '@') {
      m_Socket.front() = '\0';
    }
  }
  unsetenv("NOTIFY_SOCKET"); // NOLINT(concurrency-mt-unsafe)
}

void ServiceManager::Reloading() const {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  const long long microseconds = now.tv_sec * 1'000'000LL + now.tv_nsec / 1000;
  Notify("RELOADING=1\nMONOTONIC_USEC=" + std::to_string(microseconds));
}

void ServiceManager::Notify(const std::string& state) const {
  if (m_Socket.empty()) {
    return;
  }
  const int socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (socket < 0) {
    return;
  }
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, m_Socket.data(), m_Socket.size());
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + m_Socket.size());
  // Nothing depends on its arrival: a manager that is gone asks for nothing any more.
  static_cast<void>(
      sendto(socket, state.data(), state.size(), MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&address), size));
  close(socket);
}

} // namespace Host
