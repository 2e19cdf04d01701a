#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>

#include "host/http/Message.h"

namespace Host {

/// Answers the requests of one thread of the server. Made on that thread, used and destroyed by it alone, so it needs
/// no lock. An exception out of `OnHead`, `BodyLimit`, `BeginGroup` or `Handle` answers the request with 500 and closes
/// its connection; the thread goes on.
class Handler {
public:
  enum class Body {
    Ignore, ///< answer without waiting for it; unless it has come by then, the connection is closed after the answer
    Read    ///< wait for it
  };

  Handler() = default;
  virtual ~Handler() = default;
  Handler(const Handler&) = delete;
  Handler& operator=(const Handler&) = delete;

  /// A head was read and is well-formed: what to do with the body. Asked only for a request that announces one. What it
  /// finds out it may leave in the request's `notes`.
  virtual Body OnHead(Request& request) = 0;
  /// How many bytes of a body that is to be read are accepted; a longer one is refused with 413.
  virtual std::size_t BodyLimit(const Request& request) = 0;
  /// A group of requests follows, each read to its last byte (or as far as `Body::Ignore` waits) before this call: one
  /// look at the world serves them all.
  virtual void BeginGroup() = 0;
  /// Where an answer that takes long may be given: from any thread, once. The connection may be gone by then.
  using Answerer = std::function<void(Response)>;
  /// Puts the answer off: what it returns is called in the place of an answer. Whoever puts it off keeps his own time:
  /// no deadline of the transport runs meanwhile. Must not be used after the call of `Handle` that it was given to.
  using Deferral = std::function<Answerer()>;

  /// Answers one request before it returns; or uses `defer` once, returns nothing, and may take the request's contents
  /// along.
  virtual std::optional<Response> Handle(Request& request, const Deferral& defer) = 0;

  /// The transport itself answered something that never became a request: 400, 408, 413, 414, 417, 431, 501 or 505; or
  /// 500 for an exception of this handler.
  virtual void OnRefused(unsigned /*status*/, const Peer& /*peer*/) {}
  /// Once a second, between groups.
  virtual void OnTick() {}
};

/// Makes the handler of a thread, counted from 0; called on that thread. What it throws comes out of `Server::Start`.
using HandlerFactory = std::function<std::unique_ptr<Handler>(unsigned thread)>;

} // namespace Host
