#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "host/http/Handler.h"
#include "host/http/serve/ServerSettings.h"

namespace Host {

/// An HTTP/1.1 and HTTP/1.0 server (RFC 9110, 9112): one loop a thread, connections dealt to them in turn, requests
/// handled by the `Handler` of the thread. Whatever is ambiguous in a request is refused and its connection closed.
/// Every member may be called from any thread, but from a handler only `Stop` and `Connections`.
class Server {
public:
  Server(ServerSettings settings, HandlerFactory factory);
  /// Stops and joins.
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  /// Raises the limit of descriptors, binds every address, makes the handlers and starts the threads; once it returns,
  /// connections are accepted. Throws `AccessDirectory::Failure` that names what is wrong, or what the factory threw;
  /// nothing is left bound then. At most once.
  void Start();

  /// The addresses as bound, in the form of the configuration, port 0 replaced by the one taken.
  std::vector<std::string> Listening() const;
  /// What is less than was asked for, in sentences for people; complete once `Start` has returned.
  std::vector<std::string> Warnings() const;

  /// Reads the TLS files anew; connections made from now on use them. Throws `AccessDirectory::Failure` and keeps what
  /// it had when they cannot be used.
  void Reload();

  /// Accepts nothing more, closes connections that wait for nothing, answers what is being read or written, and ends
  /// the threads as soon as nothing is open, or after `patience`. Returns at once.
  void Drain(std::chrono::milliseconds patience);
  /// Closes everything and ends the threads. Returns at once.
  void Stop();
  /// Waits until the threads have ended.
  void Join();

  /// Open connections of all threads.
  unsigned Connections() const noexcept;

private:
  class Implementation;
  std::unique_ptr<Implementation> m_Implementation;
};

} // namespace Host
