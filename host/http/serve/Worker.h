#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "host/http/Answer.h"
#include "host/http/serve/Connection.h"
#include "host/http/Handler.h"
#include "host/http/serve/ServerSettings.h"
#include "host/http/net/Acceptor.h"
#include "host/http/net/Reactor.h"

namespace Host {

/// One thread of the server with its connections. `Adopt`, `Post`, `Stop` and `Connections` may be called from any
/// thread, the rest from its own only.
class Worker {
public:
  /// `most_connections`: its share of the server's.
  Worker(const ServerSettings& settings, unsigned most_connections);
  ~Worker();
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;

  /// Serves until `Stop`, or until a drain has ended; then closes everything.
  void Run(std::unique_ptr<Handler> handler);
  void Stop() { m_Reactor.Stop(); }
  void Post(std::function<void()> work) { m_Reactor.Post(std::move(work)); }
  /// Open connections, those included that are on their way to this thread.
  unsigned Connections() const noexcept { return m_Count.load(std::memory_order_relaxed); }
  bool Full() const noexcept { return Connections() >= m_Most; }

  /// Makes the connection one of this thread's, closing another for it where there are too many.
  void Adopt(FileDescriptor socket, TlsSession session, Peer peer);

  /// Accepts from now on.
  void Listen(std::shared_ptr<const Listener> listener, Acceptor::Deal deal);
  /// See `Server::Drain`.
  void Drain(std::chrono::milliseconds patience);

  /// For its connections.
  const ServerSettings& Settings() const noexcept { return m_Settings; }
  Reactor& Loop() noexcept { return m_Reactor; }
  Handler& TheHandler() noexcept { return *m_Handler; }
  RequestPool& Pool() noexcept { return m_Pool; }
  bool Draining() const noexcept { return m_Draining; }
  std::string_view Date() { return m_Date.Now(); }
  /// Memory to read into, and to write an answer into, until the call that uses it returns.
  std::string& Input() noexcept { return m_Input; }
  std::string& Output() noexcept { return m_Output; }
  /// `connection` has a complete request: it is answered with the next group.
  void Enqueue(std::shared_ptr<Connection> connection);
  /// Puts a connection last among those that are closed first when there are too many, or last among the others.
  void MarkIdle(Connection::Place& place) { Move(place, m_Idle); }
  void MarkBusy(Connection::Place& place) { Move(place, m_Busy); }
  void Remove(const Connection::Place& place);

private:
  struct Arrival {
    FileDescriptor socket;
    TlsSession session;
    Peer peer;
  };

  static void Move(Connection::Place& place, Connection::List& to);
  void Begin(Arrival arrival);
  void BeginArrivals();
  bool CloseOne();
  void AnswerGroup();
  void Tick();
  void EndIfDrained();
  void CloseAll();

  const ServerSettings& m_Settings;
  const unsigned m_Most;
  std::atomic<unsigned> m_Count{0};
  Reactor m_Reactor;
  std::unique_ptr<Handler> m_Handler;
  RequestPool m_Pool;
  DateText m_Date;
  std::string m_Input;
  std::string m_Output;
  Connection::List m_Idle; // the one that has been idle longest first
  Connection::List m_Busy;
  std::vector<std::shared_ptr<Connection>> m_Group;
  std::vector<std::shared_ptr<Connection>> m_Answering;
  std::vector<std::shared_ptr<Acceptor>> m_Acceptors;
  bool m_Draining = false;
  Connection::Clock::time_point m_DrainEnd;

  std::mutex m_ArrivalsMutex;
  std::vector<Arrival> m_Arrivals; // guarded by m_ArrivalsMutex
};

} // namespace Host
