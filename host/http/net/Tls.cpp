#include "host/http/net/Tls.h"

#include <array>
#include <new>

#include <openssl/err.h>
#include <openssl/ssl.h>

#include "directory/Failure.h"
#include "directory/text/Text.h"

namespace Host {

using AccessDirectory::Failure;

namespace {

[[noreturn]] void Fail(const std::string& what) {
  std::array<char, 256> reason{};
  ERR_error_string_n(ERR_peek_last_error(), reason.data(), reason.size());
  ERR_clear_error();
  throw Failure(Failure::Kind::Input, what + ": " + reason.data());
}

// A key with a passphrase is an error, not a question on a terminal.
int NoPassphrase(char* /*buffer*/, int /*size*/, int /*writing*/, void* /*data*/) {
  return -1;
}

// Who issued a certificate says nothing here: the directory knows thumbprints. That the client holds its key, TLS
// proves.
int AcceptAnyIssuer(X509_STORE_CTX* /*chain*/, void* /*data*/) {
  return 1;
}

int ChooseProtocol(SSL* /*session*/, const unsigned char** chosen, unsigned char* size, const unsigned char* offered,
                   unsigned offered_size, void* /*data*/) {
  static constexpr unsigned char Ours[] = {8, 'h', 't', 't', 'p', '/', '1', '.', '1'};
  unsigned char* found = nullptr;
  if (SSL_select_next_proto(&found, size, Ours, sizeof Ours, offered, offered_size) != OPENSSL_NPN_NEGOTIATED) {
    return SSL_TLSEXT_ERR_ALERT_FATAL;
  }
  *chosen = found;
  return SSL_TLSEXT_ERR_OK;
}

} // namespace

void SessionDeleter::operator()(SSL* session) const noexcept {
  SSL_free(session);
}

void TlsContext::ContextDeleter::operator()(SSL_CTX* context) const noexcept {
  SSL_CTX_free(context);
}

TlsContext::TlsContext(const std::string& certificate_file, const std::string& key_file,
                       bool ask_for_client_certificate) {
  ERR_clear_error();
  m_Context.reset(SSL_CTX_new(TLS_server_method()));
  SSL_CTX* context = m_Context.get();
  if (context == nullptr || SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION) != 1) {
    Fail("cannot use TLS");
  }
  SSL_CTX_set_options(context, SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_COMPRESSION | SSL_OP_CIPHER_SERVER_PREFERENCE);
  SSL_CTX_set_mode(context,
                   SSL_MODE_RELEASE_BUFFERS | SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
  // A record's header and data come in one call of the system; `Channel` asks what else came along.
  SSL_CTX_set_read_ahead(context, 1);
  SSL_CTX_set_session_cache_mode(context, SSL_SESS_CACHE_OFF);
  SSL_CTX_set_alpn_select_cb(context, ChooseProtocol, nullptr);
  if (ask_for_client_certificate) {
    static constexpr unsigned char Sessions[] = "perenna-access";
    SSL_CTX_set_verify(context, SSL_VERIFY_PEER, nullptr);
    SSL_CTX_set_cert_verify_callback(context, AcceptAnyIssuer, nullptr);
    // Without it a session that holds a client's certificate cannot be resumed.
    SSL_CTX_set_session_id_context(context, Sessions, sizeof Sessions - 1);
  }
  SSL_CTX_set_default_passwd_cb(context, NoPassphrase);
  if (SSL_CTX_use_certificate_chain_file(context, certificate_file.c_str()) != 1) {
    Fail("cannot use the TLS certificate " + AccessDirectory::Quoted(certificate_file));
  }
  if (SSL_CTX_use_PrivateKey_file(context, key_file.c_str(), SSL_FILETYPE_PEM) != 1) {
    Fail("cannot use the TLS key " + AccessDirectory::Quoted(key_file));
  }
  if (SSL_CTX_check_private_key(context) != 1) {
    Fail("the TLS key " + AccessDirectory::Quoted(key_file) + " is not that of the certificate " +
         AccessDirectory::Quoted(certificate_file));
  }
}

TlsSession TlsContext::Accept(int descriptor) const {
  TlsSession session(SSL_new(m_Context.get()));
  if (session == nullptr || SSL_set_fd(session.get(), descriptor) != 1) {
    throw std::bad_alloc();
  }
  SSL_set_accept_state(session.get());
  return session;
}

} // namespace Host
