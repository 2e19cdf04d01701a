#include "host/http/net/Acceptor.h"

#include <cerrno>
#include <utility>

namespace Host {

namespace {

// Connections accepted before the loop turns to those that are there already.
constexpr int MostInARow = 64;

} // namespace

Acceptor::Acceptor(Reactor& reactor, std::shared_ptr<const Listener> listener, Deal deal,
                   std::function<void()> exhausted)
    : m_Listener(std::move(listener)), m_Deal(std::move(deal)), m_Exhausted(std::move(exhausted)),
      m_Watch(std::make_unique<Watch>(reactor, m_Listener->Handle())) {}

void Acceptor::Resume() {
  if (m_Watch && !m_Waiting) {
    m_Waiting = true;
    m_Watch->Wait(Watch::For::Reading, shared_from_this());
  }
}

void Acceptor::Close() {
  m_Watch.reset();
  m_Listener.reset();
}

void Acceptor::OnReady() {
  m_Waiting = false;
  for (int i = 0; i < MostInARow && m_Watch; ++i) {
    Peer peer;
    FileDescriptor socket = m_Listener->Accept(peer);
    if (socket.Valid()) {
      m_Deal(std::move(socket), std::move(peer));
      continue;
    }
    if (errno == EAGAIN || errno == EWOULDBLOCK) {
      break;
    }
    if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
      m_Exhausted();
      return;
    }
    // What else accept reports is the fate of one connection that is gone already.
  }
  Resume();
}

} // namespace Host
