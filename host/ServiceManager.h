#pragma once

#include <string>

namespace Host {

/// Tells the service manager that started the process how it is doing (sd_notify(3): a datagram to the socket that
/// NOTIFY_SOCKET names). Where nobody asked for it, or listens, it does nothing. One thread uses it.
class ServiceManager {
public:
  /// Takes NOTIFY_SOCKET out of the environment: children must not speak for this process.
  ServiceManager();

  void Ready() const { Notify("READY=1"); }
  void Reloading() const;
  void Stopping() const { Notify("STOPPING=1"); }

private:
  void Notify(const std::string& state) const;

  std::string m_Socket; ///< a path, or a name of the abstract namespace led by a NUL; empty: nobody
};

} // namespace Host
