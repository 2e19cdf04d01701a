#include "host/http/serve/Worker.h"

#include <exception>
#include <utility>

#include "TN_log.h"

namespace Host {

namespace {

// One read of this size is as much as a connection gets before the loop turns to others; more than a record of TLS.
constexpr std::size_t InputBytes = 65536;

// What a long answer leaves of the memory to write into.
constexpr std::size_t MostKeptOutput = 1048576;

} // namespace

Worker::Worker(const ServerSettings& settings, unsigned most_connections)
    : m_Settings(settings), m_Most(most_connections), m_Input(InputBytes, '\0') {}

Worker::~Worker() = default;

void Worker::Run(std::unique_ptr<Handler> handler) {
  m_Handler = std::move(handler);
  m_Reactor.EverySecond([this] { Tick(); });
  m_Reactor.Run();
  CloseAll();
  m_Handler.reset();
}

void Worker::CloseAll() {
  for (const auto& acceptor : m_Acceptors) {
    acceptor->Close();
  }
  m_Acceptors.clear();
  for (auto* list : {&m_Idle, &m_Busy}) {
    while (!list->empty()) {
      const auto connection = list->front();
      connection->CloseGently();
    }
  }
  m_Group.clear();
  const std::lock_guard<std::mutex> hold(m_ArrivalsMutex);
  m_Count.fetch_sub(static_cast<unsigned>(m_Arrivals.size()), std::memory_order_relaxed);
  m_Arrivals.clear();
}

void Worker::Adopt(FileDescriptor socket, TlsSession session, Peer peer) {
  m_Count.fetch_add(1, std::memory_order_relaxed);
  const std::lock_guard<std::mutex> hold(m_ArrivalsMutex);
  m_Arrivals.push_back({std::move(socket), std::move(session), std::move(peer)});
  if (m_Arrivals.size() == 1) {
    Post([this] { BeginArrivals(); });
  }
}

void Worker::BeginArrivals() {
  std::vector<Arrival> arrivals;
  {
    const std::lock_guard<std::mutex> hold(m_ArrivalsMutex);
    arrivals.swap(m_Arrivals);
  }
  for (auto& arrival : arrivals) {
    Begin(std::move(arrival));
  }
}

void Worker::Begin(Arrival arrival) {
  if (m_Draining || (m_Count.load(std::memory_order_relaxed) > m_Most && !CloseOne())) {
    m_Count.fetch_sub(1, std::memory_order_relaxed);
    return;
  }
  std::shared_ptr<Connection> connection;
  try {
    // The session uses the socket until it ends.
    connection = std::make_shared<Connection>(*this, std::move(arrival.socket), std::move(arrival.session),
                                              std::move(arrival.peer));
    m_Busy.push_back(connection);
  } catch (const std::exception& error) {
    Tarn::DefaultLogSink().Error("A connection could not be taken: %s\n", error.what());
    m_Count.fetch_sub(1, std::memory_order_relaxed);
    return;
  }
  connection->Start({&m_Busy, std::prev(m_Busy.end())});
}

bool Worker::CloseOne() {
  for (auto* list : {&m_Idle, &m_Busy}) {
    for (const auto& connection : *list) {
      if (connection->Dispensable()) {
        const auto kept = connection;
        kept->CloseGently();
        return true;
      }
    }
  }
  return false;
}

void Worker::Listen(std::shared_ptr<const Listener> listener, Acceptor::Deal deal) {
  if (m_Draining) {
    return;
  }
  m_Acceptors.push_back(
      std::make_shared<Acceptor>(m_Reactor, std::move(listener), std::move(deal), [this] { CloseOne(); }));
  m_Acceptors.back()->Resume();
}

void Worker::Enqueue(std::shared_ptr<Connection> connection) {
  m_Group.push_back(std::move(connection));
  // Behind what is ready already: everything that can be read now is read before the group begins.
  if (m_Group.size() == 1) {
    Post([this] { AnswerGroup(); });
  }
}

void Worker::AnswerGroup() {
  m_Answering.swap(m_Group);
  bool began = true;
  try {
    m_Handler->BeginGroup();
  } catch (const std::exception& error) {
    Tarn::DefaultLogSink().Error("A group of requests failed: %s\n", error.what());
    began = false;
  }
  for (const auto& connection : m_Answering) {
    connection->Answer(began);
  }
  m_Answering.clear();
  if (m_Output.capacity() > MostKeptOutput) {
    std::string().swap(m_Output);
  }
}

void Worker::Move(Connection::Place& place, Connection::List& to) {
  to.splice(to.end(), *place.list, place.node);
  place.list = &to;
}

void Worker::Remove(const Connection::Place& place) {
  place.list->erase(place.node);
  m_Count.fetch_sub(1, std::memory_order_relaxed);
  EndIfDrained();
}

void Worker::Tick() {
  const auto now = Connection::Clock::now();
  for (auto* list : {&m_Busy, &m_Idle}) {
    for (auto next = list->begin(); next != list->end();) {
      const auto connection = *next++;
      connection->OnTime(now);
    }
  }
  for (const auto& acceptor : m_Acceptors) {
    acceptor->Resume();
  }
  try {
    m_Handler->OnTick();
  } catch (const std::exception& error) {
    Tarn::DefaultLogSink().Error("What is due every second failed: %s\n", error.what());
  }
  // The next look is a second away: rather early than late.
  if (m_Draining && now + std::chrono::seconds(1) > m_DrainEnd) {
    Stop();
  }
}

void Worker::Drain(std::chrono::milliseconds patience) {
  m_Draining = true;
  m_DrainEnd = Connection::Clock::now() + patience;
  for (const auto& acceptor : m_Acceptors) {
    acceptor->Close();
  }
  m_Acceptors.clear();
  for (auto next = m_Idle.begin(); next != m_Idle.end();) {
    const auto connection = *next++;
    if (connection->Idle()) {
      connection->CloseGently();
    }
  }
  EndIfDrained();
}

void Worker::EndIfDrained() {
  if (m_Draining && m_Idle.empty() && m_Busy.empty()) {
    Stop();
  }
}

} // namespace Host
