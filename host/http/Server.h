#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "host/http/Handler.h"
#include "host/http/net/Listener.h"

namespace Host {

/// What a server is made of. Names of files are used as they are.
struct ServerSettings {
  std::vector<ListenAddress> listen; ///< as `ParseListenAddress` gives them
  std::string socket_group;          ///< group of Unix-domain sockets, by name; "" leaves the process's own
  unsigned threads = 0;              ///< 0: one a core

  std::string certificate_file;            ///< PEM, the server's own first, then its chain; needed for `https:`
  std::string key_file;                    ///< PEM, without a passphrase
  bool ask_for_client_certificate = false; ///< accepted whoever issued it; a client without one is served too

  std::size_t header_bytes = 32768;      ///< of request line and fields together, their empty line included
  unsigned connections = 10000;          ///< open at a time; beyond that, those that wait for nothing are closed first
  std::chrono::milliseconds idle{60000}; ///< between two requests of a connection, and before its first
  std::chrono::milliseconds request{10000};  ///< for reading a whole request, and again for writing its answer
  std::chrono::milliseconds handshake{5000}; ///< for that of TLS
  std::chrono::milliseconds linger{2000};    ///< how long a refused client may go on sending before it is cut off
};

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
