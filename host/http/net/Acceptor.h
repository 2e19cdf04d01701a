#pragma once

#include <functional>
#include <memory>

#include "host/http/net/Listener.h"
#include "host/http/net/Reactor.h"

namespace Host {

/// Takes the connections of one listener on one reactor's thread.
class Acceptor final : public Waiter, public std::enable_shared_from_this<Acceptor> {
public:
  using Deal = std::function<void(FileDescriptor socket, Peer peer)>;

  /// `exhausted` is called when the system has no descriptor or memory for a connection
  /// that waits; accepting then rests until `Resume`.
  Acceptor(Reactor& reactor, std::shared_ptr<const Listener> listener, Deal deal, std::function<void()> exhausted);

  /// Begins to accept, or goes on.
  void Resume();
  /// Accepts nothing any more.
  void Close();
  void OnReady() override;

private:
  std::shared_ptr<const Listener> m_Listener;
  Deal m_Deal;
  std::function<void()> m_Exhausted;
  std::unique_ptr<Watch> m_Watch;
  bool m_Waiting = false;
};

} // namespace Host
