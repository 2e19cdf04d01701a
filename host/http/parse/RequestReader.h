#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "host/http/Handler.h"
#include "host/http/Message.h"
#include "host/http/parse/ChunkedBody.h"
#include "host/http/parse/HeadScanner.h"
#include "host/http/parse/RequestHead.h"

namespace Host {

/// Requests that are not in use, so that their memory is used again. For one thread.
class RequestPool {
public:
  std::unique_ptr<Request> Take();
  void Return(std::unique_ptr<Request> request);

private:
  std::vector<std::unique_ptr<Request>> m_Free;
};

/// Makes requests of the bytes of one connection. Knows nothing of sockets; keeps no memory between two requests.
class RequestReader {
public:
  enum class Result {
    More,     ///< feed on
    Continue, ///< the same, after telling the client to go on with its body
    Complete, ///< `Take` has a request
    Refused   ///< `Status` says with what; nothing more can be read
  };

  /// What a reader asks while it reads; the same for all connections of a thread.
  struct Surroundings {
    Handler& handler;
    RequestPool& pool;
    std::size_t header_bytes;
  };

  /// Reads on: what was left of earlier calls, then `bytes`. What the handler throws passes through.
  Result Read(const Surroundings& around, const Peer& peer, std::string_view bytes);

  /// The complete request; the next `Read` begins with the bytes after it.
  std::unique_ptr<Request> Take();
  /// Whether the connection stays open after the answer, as far as the request has its say.
  bool KeepAlive() const noexcept { return m_Framing.keep_alive; }
  unsigned Status() const noexcept { return m_Status; }
  /// Whether nothing of a next request has come.
  bool Empty() const noexcept { return m_Left.empty() && !m_Request; }

private:
  enum class Phase { Head, Length, Chunked };

  Result ReadHead(const Surroundings& around, const Peer& peer, std::string_view& bytes);
  Result BeginBody(const Surroundings& around, std::string_view& bytes);
  Result SkipBody(std::string_view& bytes);
  Result ReadBody(std::string_view& bytes);
  Result Refuse(unsigned status);

  std::string m_Left; // bytes of a head that is not complete, or after a request
  std::unique_ptr<Request> m_Request;
  std::size_t m_BodyLimit = 0;
  Framing m_Framing;
  HeadScanner m_Scanner;
  ChunkedBody m_Chunks;
  Phase m_Phase = Phase::Head;
  unsigned m_Status = 0;
};

} // namespace Host
