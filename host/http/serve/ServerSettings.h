#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

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

  std::size_t header_bytes = 32768; ///< of request line and fields together, their empty line included
  unsigned connections = 10000; ///< open at a time; for one more, the longest idle is closed, else the slowest client
  std::chrono::milliseconds idle{60000};     ///< between two requests of a connection, and before its first
  std::chrono::milliseconds request{10000};  ///< for reading a whole request, and again for writing its answer
  std::chrono::milliseconds handshake{5000}; ///< for that of TLS
  std::chrono::milliseconds linger{2000};    ///< how long a refused client may go on sending before it is cut off
};

} // namespace Host
