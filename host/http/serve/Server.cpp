#include "host/http/serve/Server.h"

#include <algorithm>
#include <csignal>
#include <future>
#include <mutex>
#include <pthread.h>
#include <sys/resource.h>
#include <thread>
#include <utility>

#include "TN_log.h"
#include "host/http/serve/Worker.h"
#include "host/http/net/Tls.h"

namespace Host {

namespace {

// Descriptors beside connections: of the process, and of each thread (its loop, its database connections, its logs).
constexpr rlim_t DescriptorsOfProcess = 64;
constexpr rlim_t DescriptorsOfThread = 24;

// Raises the soft limit of descriptors as far as `connections` need it; how many connections it then allows.
unsigned AllowConnections(unsigned connections, unsigned threads) {
  const rlim_t others = DescriptorsOfProcess + DescriptorsOfThread * threads;
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) {
    return connections;
  }
  const rlim_t wanted = connections + others;
  if (limit.rlim_cur < wanted) {
    limit.rlim_cur = std::min(wanted, limit.rlim_max);
    // Refused, the limit stays what it was.
    ::setrlimit(RLIMIT_NOFILE, &limit);
    ::getrlimit(RLIMIT_NOFILE, &limit);
  }
  if (limit.rlim_cur >= wanted) {
    return connections;
  }
  return static_cast<unsigned>(limit.rlim_cur > others + threads ? limit.rlim_cur - others : threads);
}

// Signals are for the thread that started the server. A peer that is gone is seen from the failed write.
class BlockedSignals {
public:
  BlockedSignals() {
    sigset_t all;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &m_Before);
  }
  ~BlockedSignals() { ::pthread_sigmask(SIG_SETMASK, &m_Before, nullptr); }
  BlockedSignals(const BlockedSignals&) = delete;
  BlockedSignals& operator=(const BlockedSignals&) = delete;

private:
  sigset_t m_Before{};
};

} // namespace

class Server::Implementation {
public:
  Implementation(ServerSettings settings, HandlerFactory factory)
      : m_Settings(std::move(settings)), m_Factory(std::move(factory)) {}

  void Start();
  void LoadTls();
  void Stop();
  void Drain(std::chrono::milliseconds patience);
  void Join();

  std::vector<std::string> listening;
  std::vector<std::string> warnings;
  std::vector<std::unique_ptr<Worker>> workers;

private:
  void StartThreads();
  void Deal(FileDescriptor socket, Peer peer);
  std::shared_ptr<const TlsContext> Tls();

  const ServerSettings m_Settings;
  const HandlerFactory m_Factory;
  std::vector<std::thread> m_Threads;
  std::vector<std::shared_ptr<const Listener>> m_Listeners;
  std::atomic<unsigned> m_Next{0};

  std::mutex m_TlsMutex;
  std::shared_ptr<const TlsContext> m_Tls; // guarded by m_TlsMutex
};

void Server::Implementation::Start() {
  const unsigned threads =
      m_Settings.threads != 0 ? m_Settings.threads : std::max(1U, std::thread::hardware_concurrency());
  const unsigned connections = AllowConnections(m_Settings.connections, threads);
  if (connections < m_Settings.connections) {
    warnings.push_back("only " + std::to_string(connections) + " of " + std::to_string(m_Settings.connections) +
                       " connections are possible: the hard limit of open files is too low");
  }
  LoadTls();
  std::vector<std::shared_ptr<const Listener>> listeners;
  for (const auto& address : m_Settings.listen) {
    listeners.push_back(std::make_shared<Listener>(address, m_Settings.socket_group));
  }
  for (unsigned i = 0; i < threads; ++i) {
    workers.push_back(std::make_unique<Worker>(m_Settings, std::max(1U, (connections + threads - 1) / threads)));
  }
  StartThreads();
  for (std::size_t i = 0; i < listeners.size(); ++i) {
    listening.push_back(listeners[i]->Address().Text());
    Worker& worker = *workers[i % workers.size()];
    worker.Post([this, &worker, listener = listeners[i]] {
      worker.Listen(listener, [this](FileDescriptor socket, Peer peer) { Deal(std::move(socket), std::move(peer)); });
    });
  }
  m_Listeners = std::move(listeners);
}

void Server::Implementation::StartThreads() {
  const BlockedSignals blocked;
  std::vector<std::future<void>> ready;
  for (unsigned i = 0; i < workers.size(); ++i) {
    std::promise<void> promise;
    ready.push_back(promise.get_future());
    m_Threads.emplace_back([this, i, promise = std::move(promise)]() mutable {
      std::unique_ptr<Handler> handler;
      try {
        handler = m_Factory(i);
      } catch (...) {
        promise.set_exception(std::current_exception());
        return;
      }
      promise.set_value();
      workers[i]->Run(std::move(handler));
    });
  }
  try {
    for (auto& each : ready) {
      each.get();
    }
  } catch (...) {
    Stop();
    Join();
    throw;
  }
}

void Server::Implementation::LoadTls() {
  const auto& addresses = m_Settings.listen;
  if (std::none_of(addresses.begin(), addresses.end(),
                   [](const ListenAddress& address) { return address.kind == ListenAddress::Kind::Tls; })) {
    return;
  }
  auto context = std::make_shared<const TlsContext>(m_Settings.certificate_file, m_Settings.key_file,
                                                    m_Settings.ask_for_client_certificate);
  const std::lock_guard<std::mutex> hold(m_TlsMutex);
  m_Tls = std::move(context);
}

std::shared_ptr<const TlsContext> Server::Implementation::Tls() {
  const std::lock_guard<std::mutex> hold(m_TlsMutex);
  return m_Tls;
}

// In turn, past threads that have their share while another has not.
void Server::Implementation::Deal(FileDescriptor socket, Peer peer) {
  const auto count = static_cast<unsigned>(workers.size());
  const unsigned first = m_Next.fetch_add(1, std::memory_order_relaxed);
  unsigned chosen = 0;
  while (chosen + 1 < count && workers[(first + chosen) % count]->Full()) {
    ++chosen;
  }
  try {
    TlsSession session;
    if (peer.tls) {
      session = Tls()->Accept(socket.Get());
    }
    workers[(first + chosen) % count]->Adopt(std::move(socket), std::move(session), std::move(peer));
  } catch (const std::exception& error) {
    Tarn::DefaultLogSink().Error("A connection could not be taken: %s\n", error.what());
  }
}

void Server::Implementation::Drain(std::chrono::milliseconds patience) {
  for (const auto& worker : workers) {
    worker->Post([&worker = *worker, patience] { worker.Drain(patience); });
  }
  m_Listeners.clear();
}

void Server::Implementation::Stop() {
  for (const auto& worker : workers) {
    worker->Stop();
  }
}

void Server::Implementation::Join() {
  for (auto& thread : m_Threads) {
    if (thread.joinable()) {
      thread.join();
    }
  }
}

Server::Server(ServerSettings settings, HandlerFactory factory)
    : m_Implementation(std::make_unique<Implementation>(std::move(settings), std::move(factory))) {}

Server::~Server() {
  Stop();
  Join();
}

void Server::Start() {
  m_Implementation->Start();
}

std::vector<std::string> Server::Listening() const {
  return m_Implementation->listening;
}

std::vector<std::string> Server::Warnings() const {
  return m_Implementation->warnings;
}

void Server::Reload() {
  m_Implementation->LoadTls();
}

void Server::Drain(std::chrono::milliseconds patience) {
  m_Implementation->Drain(patience);
}

void Server::Stop() {
  m_Implementation->Stop();
}

void Server::Join() {
  m_Implementation->Join();
}

unsigned Server::Connections() const noexcept {
  unsigned count = 0;
  for (const auto& worker : m_Implementation->workers) {
    count += worker->Connections();
  }
  return count;
}

} // namespace Host
