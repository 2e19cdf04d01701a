#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "host/http/serve/Server.h"
#include "support/Support.h"

namespace Testing {

/// What the handlers of a server saw, from all threads.
struct Seen {
  std::vector<Host::Request> requests;
  std::vector<unsigned> refused;
  std::vector<std::size_t> groups; // requests in each
};

/// A server whose answer is "METHOD TARGET BODY\n"; targets ask for more: "/ignore" for its body not to be waited for,
/// "/big" for an answer of a megabyte or two, "/throw" for an exception, "/inject" for a field with a line break,
/// "/slow" for 200 ms, "/late" for an answer from another thread after 500 ms. Bodies are limited to 100 bytes.
class RunningServer {
public:
  /// Listens on a free port of the loopback address, with deadlines of a third of a second.
  static Host::ServerSettings Settings(const std::string& address = "127.0.0.1:0");

  explicit RunningServer(Host::ServerSettings settings = Settings());

  Host::Server& operator*() { return m_Server; }
  Host::Server* operator->() { return &m_Server; }
  Seen SoFar();

private:
  std::mutex m_Mutex;
  Seen m_Seen; // guarded by m_Mutex
  Host::Server m_Server;
};

/// A blocking connection to the first address of a server; gives up after five seconds.
class RawClient {
public:
  explicit RawClient(RunningServer& server);

  int Handle() const noexcept { return m_Socket.Get(); }
  RawClient& Send(std::string_view bytes);
  /// Everything up to the end of the connection; "(timeout)" is added when there is none, "(reset)" when it was reset.
  std::string ReadToEnd();
  /// One answer with a Content-Length; `body` is false for one to HEAD.
  std::string ReadAnswer(bool body = true);

private:
  Host::FileDescriptor m_Socket;
  std::string m_Rest;
};

/// The body of an answer.
std::string Body(const std::string& answer);

} // namespace Testing
