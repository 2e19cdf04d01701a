#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "sync/Settings.h"

namespace Sync {

/// What came back from one request.
struct HttpAnswer {
  bool arrived = false; ///< false: `body` says why there is no answer
  long status = 0;
  std::string body;
};

/// HTTP to the members of the store, their connections kept open. One thread uses an object.
class Transport {
public:
  explicit Transport(const Settings& settings);
  ~Transport();
  Transport(const Transport&) = delete;
  Transport& operator=(const Transport&) = delete;

  /// Posts `body` (JSON) and waits for the whole answer: at most `patience` altogether, and at most three seconds
  /// without a byte. `token` is what the store's authentication gave; empty for none. Never throws for what the network
  /// does.
  HttpAnswer Post(const std::string& url, const std::string& body, const std::string& token,
                  std::chrono::milliseconds patience);

private:
  class Handle;
  std::unique_ptr<Handle> m_Handle;
};

/// An answer that does not end, taken line by line. One thread uses an object.
class Stream {
public:
  /// Begins to post `body`; nothing is waited for.
  Stream(const Settings& settings, const std::string& url, std::string body, const std::string& token);
  ~Stream();
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  /// A line without its end; nothing when none has come within `patience`, or `descriptor` (-1: none) can be read.
  std::optional<std::string> Line(std::chrono::milliseconds patience, int descriptor = -1);
  /// Whether a whole line has come already.
  bool HasLine() const noexcept;
  /// Why no more lines will come; empty while they may.
  const std::string& Ended() const noexcept;

private:
  class Handle;
  std::unique_ptr<Handle> m_Handle;
};

} // namespace Sync
