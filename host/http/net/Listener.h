#pragma once

#include <string>

#include "host/http/Message.h"
#include "host/http/net/FileDescriptor.h"

namespace Host {

/// Where to listen.
struct ListenAddress {
  enum class Kind { Unix, Tcp, Tls };

  Kind kind = Kind::Tcp;
  std::string path;    ///< of a Unix-domain socket
  std::string address; ///< numeric, IPv4 or IPv6 (without brackets)
  unsigned port = 0;   ///< 0 takes a free one

  /// Whether only this machine can reach it.
  bool Local() const;
  /// As a configuration has it: "unix:PATH", "ADDRESS:PORT", "https:ADDRESS:PORT"; IPv6 in brackets.
  std::string Text() const;
};

/// Reads "unix:PATH", "ADDRESS:PORT" or "https:ADDRESS:PORT" with a numeric address, IPv6 in brackets. Throws
/// `AccessDirectory::Failure` of kind Input that names the text and what is accepted.
ListenAddress ParseListenAddress(const std::string& text);

/// A bound, listening, non-blocking socket.
class Listener {
public:
  /// Binds. A Unix-domain socket gets mode 0660 and, if `socket_group` is not empty, that group; a socket file that
  /// nobody listens on any more is replaced, anything else at that path is left alone. Throws
  /// `AccessDirectory::Failure`.
  Listener(ListenAddress address, const std::string& socket_group);

  /// With the port that was taken.
  const ListenAddress& Address() const noexcept { return m_Address; }
  int Handle() const noexcept { return m_Socket.Get(); }

  /// The next waiting connection, non-blocking, and who it is; an invalid descriptor with `errno` set when there is
  /// none.
  FileDescriptor Accept(Peer& peer) const;

private:
  /// Removes the socket file at `path` if it is still the one that was bound.
  struct SocketFile {
    SocketFile() = default;
    ~SocketFile();
    SocketFile(const SocketFile&) = delete;
    SocketFile& operator=(const SocketFile&) = delete;

    std::string path;
    dev_t device = 0;
    ino_t inode = 0;
  };

  void BindLocal(const std::string& socket_group);

  ListenAddress m_Address;
  SocketFile m_File;
  FileDescriptor m_Socket;
};

} // namespace Host
