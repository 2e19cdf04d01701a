#include "host/http/net/Channel.h"

#include <cerrno>
#include <sys/socket.h>

#include <openssl/err.h>
#include <openssl/ssl.h>

namespace Host {

namespace {

bool TryLater(int error) noexcept {
  return error == EAGAIN || error == EWOULDBLOCK || error == EINTR;
}

} // namespace

Channel::Status Channel::After(int result) {
  switch (SSL_get_error(m_Session.get(), result)) {
  case SSL_ERROR_NONE:
    return Status::Done;
  case SSL_ERROR_WANT_READ:
    return Status::WantsRead;
  case SSL_ERROR_WANT_WRITE:
    return Status::WantsWrite;
  case SSL_ERROR_ZERO_RETURN:
    return Status::End;
  default:
    break;
  }
  ERR_clear_error();
  return Status::Failed;
}

Channel::Status Channel::Handshake() {
  ERR_clear_error();
  return After(SSL_do_handshake(m_Session.get()));
}

std::string Channel::ClientCertificate() const {
  X509* certificate = SSL_get0_peer_certificate(m_Session.get());
  if (certificate == nullptr) {
    return {};
  }
  unsigned char* bytes = nullptr;
  const int size = i2d_X509(certificate, &bytes);
  if (size <= 0) {
    return {};
  }
  std::string der(bytes, bytes + size);
  OPENSSL_free(bytes);
  return der;
}

Channel::Outcome Channel::Read(char* buffer, std::size_t size) {
  if (m_Session) {
    std::size_t count = 0;
    ERR_clear_error();
    const Status status = After(SSL_read_ex(m_Session.get(), buffer, size, &count));
    return {status, count};
  }
  const auto count = ::recv(m_Socket.Get(), buffer, size, 0);
  if (count > 0) {
    return {Status::Done, static_cast<std::size_t>(count)};
  }
  if (count == 0) {
    return {Status::End, 0};
  }
  return {TryLater(errno) ? Status::WantsRead : Status::Failed, 0};
}

bool Channel::Pending() const noexcept {
  return m_Session && SSL_has_pending(m_Session.get()) == 1;
}

Channel::Outcome Channel::Write(std::string_view bytes) {
  if (m_Session) {
    std::size_t count = 0;
    ERR_clear_error();
    const Status status = After(SSL_write_ex(m_Session.get(), bytes.data(), bytes.size(), &count));
    return {status, count};
  }
  const auto count = ::send(m_Socket.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
  if (count >= 0) {
    return {Status::Done, static_cast<std::size_t>(count)};
  }
  return {TryLater(errno) ? Status::WantsWrite : Status::Failed, 0};
}

void Channel::Finish() {
  // Best effort: a peer that misses the alert learns the same from the end of the stream.
  if (m_Session) {
    ERR_clear_error();
    SSL_shutdown(m_Session.get());
    ERR_clear_error();
  }
  ::shutdown(m_Socket.Get(), SHUT_WR);
}

void Channel::Abandon() {
  const linger now{1, 0};
  ::setsockopt(m_Socket.Get(), SOL_SOCKET, SO_LINGER, &now, sizeof now);
}

} // namespace Host
