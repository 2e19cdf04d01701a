#pragma once

#include <memory>
#include <string>

using SSL = struct ssl_st;
using SSL_CTX = struct ssl_ctx_st;

namespace Host {

struct SessionDeleter {
  void operator()(SSL* session) const noexcept;
};
using TlsSession = std::unique_ptr<SSL, SessionDeleter>;

/// What the TLS connections of a server share: TLS 1.2 and later, no renegotiation, ALPN "http/1.1" (RFC 7301),
/// sessions resumed by tickets alone. Constant once made; thread-safe.
class TlsContext {
public:
  /// Certificate chain and key in PEM form. With `ask_for_client_certificate` a client's certificate is taken whoever
  /// issued it, once the client has proven that it holds the key. Throws `AccessDirectory::Failure` that names the
  /// file.
  TlsContext(const std::string& certificate_file, const std::string& key_file, bool ask_for_client_certificate);

  /// The server's side of a new connection on a descriptor that outlives it. Throws `std::bad_alloc`.
  TlsSession Accept(int descriptor) const;

private:
  struct ContextDeleter {
    void operator()(SSL_CTX* context) const noexcept;
  };
  std::unique_ptr<SSL_CTX, ContextDeleter> m_Context;
};

} // namespace Host
