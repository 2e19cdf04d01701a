#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "host/http/Handler.h"
#include "host/http/Message.h"
#include "host/http/net/Channel.h"
#include "host/http/net/Reactor.h"
#include "host/http/parse/RequestReader.h"

namespace Host {

class Worker;

/// One connection: from its handshake over its requests, one at a time, to its end. Belongs to the thread of its
/// worker, which keeps it in a list; a wait under way keeps it alive beyond that. At any time it has one deadline.
class Connection final : public Waiter, public std::enable_shared_from_this<Connection> {
public:
  using Clock = std::chrono::steady_clock;
  using List = std::list<std::shared_ptr<Connection>>;
  /// Where the worker keeps a connection.
  struct Place {
    List* list = nullptr;
    List::iterator node;
  };

  Connection(Worker& worker, FileDescriptor socket, TlsSession session, Peer peer);

  /// Begins, once the worker keeps it at `place`. May close it at once.
  void Start(Place place);
  void OnReady() override;
  /// Does what is due when its deadline has passed.
  void OnTime(Clock::time_point now);
  /// Answers the request that it has handed to the worker: by the handler, or with 500 when the group of requests that
  /// it belongs to could not begin.
  void Answer(bool group_began);
  /// Whether it waits for a request of which nothing has come.
  bool Idle() const noexcept { return m_State == State::Idle; }
  /// Whether it may be closed for the sake of another: it is the client that keeps it waiting.
  bool Dispensable() const noexcept { return m_State != State::Queued && m_State != State::Deferred; }
  /// Tells the peer, and closes.
  void CloseGently();

private:
  enum class State : std::uint8_t { Handshake, Idle, Reading, Queued, Deferred, Writing, Lingering, Closed };
  enum class AfterWrite : std::uint8_t { NextRequest, Close, Linger };

  static void LogFailure(const std::exception& error);
  template <typename Step> void Guarded(Step step);
  void Proceed();
  void Expire();
  void AnswerRequest(bool group_began);
  void Shake();
  void Receive();
  void ReadOn();
  void Take(std::string_view bytes);
  std::optional<Response> Ask(Request& request, bool group_began);
  Handler::Answerer Defer();
  void AnswerLate(const Response& response);
  void Finish(const Response& response);
  void Refuse(unsigned status);
  void Send(std::string_view bytes);
  void SendRest();
  void Sent();
  void Discard();
  void BeginIdle();
  void Wait(Channel::Status status);
  void Close();

  Worker& m_Worker;
  Channel m_Channel;
  std::unique_ptr<Watch> m_Watch;
  Peer m_Peer;
  RequestReader m_Reader;
  std::unique_ptr<Request> m_Request; // that is being answered
  std::string m_Unsent;               // the answer that the socket did not take at once
  std::size_t m_UnsentAt = 0;         // how far it has taken it since
  Clock::time_point m_Deadline;
  Place m_Place;
  State m_State = State::Idle;
  AfterWrite m_AfterWrite = AfterWrite::NextRequest;
  bool m_ToHead = false;  // the request under way
  bool m_Refused = false; // its deadline is that of the lingering close, and stays
};

} // namespace Host
