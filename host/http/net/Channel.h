#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "host/http/net/FileDescriptor.h"
#include "host/http/net/Tls.h"

namespace Host {

/// The bytes of one connection, plain or by TLS, on a non-blocking socket. Nothing here waits: what cannot be done now
/// says which readiness it needs.
class Channel {
public:
  enum class Status {
    Done,
    WantsRead,  ///< again when the socket is readable
    WantsWrite, ///< again when it is writable
    End,        ///< the peer has sent its last
    Failed      ///< the connection is of no more use
  };
  struct Outcome {
    Status status;
    std::size_t bytes; ///< read or written; not 0 when Done
  };

  /// `session` is null for a plain connection, else made for this socket.
  Channel(FileDescriptor socket, TlsSession session) noexcept
      : m_Socket(std::move(socket)), m_Session(std::move(session)) {}

  int Handle() const noexcept { return m_Socket.Get(); }
  bool Tls() const noexcept { return m_Session != nullptr; }

  /// Goes on with the handshake of TLS; after Done, bytes can be read and written.
  Status Handshake();
  /// The client's certificate in DER form, or "".
  std::string ClientCertificate() const;

  Outcome Read(char* buffer, std::size_t size);
  /// Whether bytes were taken from the socket that no `Read` has returned yet: no readiness will tell of them.
  bool Pending() const noexcept;
  Outcome Write(std::string_view bytes);

  /// Tells the peer that nothing more comes, as far as that can be done now; it may still send.
  void Finish();
  /// What was written and not yet sent is thrown away when the socket is closed.
  void Abandon();

private:
  Status After(int result);

  FileDescriptor m_Socket; // closed after the session that uses it
  TlsSession m_Session;
};

} // namespace Host
