#include "host/Service.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <iostream>
#include <optional>
#include <system_error>
#include <thread>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include "directory/audit/RowChanges.h"
#include "directory/Failure.h"
#include "directory/Log.h"
#include "directory/text/Text.h"
#include "host/RequestHandler.h"
#include "host/ServiceManager.h"
#include "host/decision/watch/CallWatch.h"
#include "host/http/serve/Server.h"
#include "host/http/net/FileDescriptor.h"
#include "host/log/ProgramLog.h"

namespace Host {

namespace {

using AccessDirectory::Failure;

// Of the time within which the process has promised to end, what its own end takes.
constexpr std::chrono::milliseconds EndTime(500);
// For those who are just being told that the directory is gone.
constexpr std::chrono::milliseconds GoneTime(1000);
// Between two looks at the age of a copy.
constexpr int LookMilliseconds = 1000;

/// The process's log while the host runs: the built-in sink behind a level and the watch over the module's calls.
class ServiceLog {
public:
  explicit ServiceLog(Tarn::LogType_t least)
      : m_Previous(Tarn::SetDefaultLogSink(nullptr)), m_Filter(Tarn::DefaultLogSink(), least), m_Sorted(&m_Filter),
        m_Watched(&m_Sorted) {
    Tarn::SetDefaultLogDebug(true); // the filter decides
    Tarn::SetDefaultLogSink(&m_Watched);
  }
  ~ServiceLog() { Tarn::SetDefaultLogSink(m_Previous); }
  ServiceLog(const ServiceLog&) = delete;
  ServiceLog& operator=(const ServiceLog&) = delete;

private:
  Tarn::ILogSink* m_Previous;
  ProgramLog m_Filter;
  AccessDirectory::LogSink m_Sorted;
  WatchedLog m_Watched;
};

/// The signals that the service waits for, kept from every thread that is started later.
class Signals {
public:
  Signals() {
    signal(SIGPIPE, SIG_IGN); // NOLINT(cert-err33-c): cannot fail
    sigset_t set;
    sigemptyset(&set);
    for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
      sigaddset(&set, number);
    }
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    m_Descriptor = FileDescriptor(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
  }
  int Handle() const { return m_Descriptor.Get(); }

  /// The next one; 0 for none.
  int Take() const {
    signalfd_siginfo info = {};
    return read(m_Descriptor.Get(), &info, sizeof info) == static_cast<ssize_t>(sizeof info)
               ? static_cast<int>(info.ssi_signo)
               : 0;
  }

private:
  FileDescriptor m_Descriptor;
};

/// Wakes the service from any thread.
class Alarm {
public:
  void Ring() const {
    constexpr std::uint64_t One = 1;
    if (write(m_Descriptor.Get(), &One, sizeof One) < 0) {
      return; // full: it has been rung
    }
  }
  int Handle() const { return m_Descriptor.Get(); }

private:
  FileDescriptor m_Descriptor{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
};

ServerSettings SettingsOf(const Configuration& configuration, unsigned threads) {
  using std::chrono::seconds;
  ServerSettings settings;
  settings.listen = configuration.listen;
  settings.socket_group = configuration.socket_group;
  settings.threads = threads;
  settings.certificate_file = configuration.tls.certificate;
  settings.key_file = configuration.tls.key;
  settings.ask_for_client_certificate = configuration.tls.client_certificates == ClientCertificates::Optional;
  settings.header_bytes = configuration.limits.header_bytes;
  settings.connections = configuration.limits.connections;
  settings.idle = seconds(configuration.limits.idle_seconds);
  settings.request = seconds(configuration.limits.request_seconds);
  return settings;
}

/// The host's parts, in the order in which they need each other.
class Service {
public:
  Service(const Configuration& configuration, AccessDirectory::ChangeWriter& writer, const Alarm& gone)
      : m_Threads(configuration.threads != 0 ? configuration.threads
                                             : std::max(1U, std::thread::hardware_concurrency())),
        m_Patience(std::chrono::seconds(configuration.limits.request_seconds) - EndTime), m_Origins(configuration),
        m_TargetForm(configuration.target_allows), m_DecisionLog(configuration.log.decisions),
        m_AccessLog(configuration.log.access), m_AdministrationLog(configuration.log.administration),
        m_Decisions(configuration, m_Threads, [&gone] { gone.Ring(); }),
        m_Handlers{configuration, m_Origins,        m_TargetForm,
                   m_Decisions,   m_Metrics,        m_DecisionLog,
                   m_AccessLog,   m_Administration, [this] { return Measure(); }},
        m_Server(SettingsOf(configuration, m_Threads),
                 [this](unsigned /*thread*/) { return std::make_unique<RequestHandler>(m_Handlers); }),
        m_Administration({configuration, m_TargetForm, m_Decisions, m_DecisionLog, m_AdministrationLog, writer,
                          [this] { return m_Server.Listening(); }},
                         m_AccessLog) {}
  ~Service() {
    m_Server.Stop(); // its threads use the administration, which answers through the server
    m_Server.Join();
  }
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;

  void Start() {
    m_Server.Start();
    for (const std::string& warning : m_Server.Warnings()) {
      Warn(warning);
    }
    for (const std::string& address : m_Server.Listening()) {
      std::cerr << "listening on " + address + "\n";
    }
  }

  /// Opens the log files and the TLS files anew.
  void Reload() {
    for (LogFile* const log : {&m_DecisionLog.File(), &m_AccessLog.File(), &m_AdministrationLog}) {
      log->Reopen();
    }
    try {
      m_Server.Reload();
      Tarn::DefaultLogSink().Notice("log files and TLS files were opened anew\n");
    } catch (const Failure& failure) {
      Tarn::DefaultLogSink().Error("the TLS files in use are kept: %s\n", failure.what());
    }
  }

  bool WatchesFreshness() const { return m_Decisions.freshness.IsWatched(); }
  /// Looks at the age of this machine's copy, and says so once when it becomes stale or fresh.
  void LookAtFreshness() {
    m_Decisions.freshness.Look();
    if (const bool is_stale = m_Decisions.freshness.IsStale(); is_stale != m_WasStale) {
      m_WasStale = is_stale;
      if (is_stale) {
        Warn(std::string("this machine's copy of the directory is older than Sync.StaleSeconds; ") +
             (m_Decisions.freshness.Forbids() ? "nothing is decided from it" : "decisions go on from it"));
      } else {
        Tarn::DefaultLogSink().Notice("this machine's copy of the directory is fresh again\n");
      }
    }
  }

  void End(std::chrono::milliseconds patience) {
    m_Server.Drain(patience);
    m_Server.Join();
  }
  std::chrono::milliseconds Patience() const { return m_Patience; }

private:
  static void Warn(const std::string& sentence) { Tarn::DefaultLogSink().Error("warning: %s\n", sentence.c_str()); }

  Metrics::Gauges Measure() {
    Metrics::Gauges gauges;
    gauges.log_lines_lost =
        m_DecisionLog.File().LinesLost() + m_AccessLog.File().LinesLost() + m_AdministrationLog.LinesLost();
    gauges.connections = m_Server.Connections();
    if (const auto age = m_Decisions.freshness.Age()) {
      gauges.sync_age_seconds = std::chrono::duration<double>(*age).count();
    }
    return gauges;
  }

  const unsigned m_Threads;
  const std::chrono::milliseconds m_Patience;
  const OriginReader m_Origins;
  const TargetForm m_TargetForm;
  Metrics m_Metrics;
  DecisionLog m_DecisionLog;
  AccessLog m_AccessLog;
  LogFile m_AdministrationLog;
  DecisionContext m_Decisions;
  const HandlerContext m_Handlers;
  Server m_Server;
  Administration m_Administration;
  bool m_WasStale = false;
};

ServiceEnd RunUntilAsked(Service& service, const Signals& signals, const Alarm& gone, const ServiceManager& manager) {
  for (;;) {
    service.LookAtFreshness();
    pollfd events[] = {{signals.Handle(), POLLIN, 0}, {gone.Handle(), POLLIN, 0}};
    if (poll(events, std::size(events), service.WatchesFreshness() ? LookMilliseconds : -1) < 0 && errno != EINTR) {
      throw Failure(Failure::Kind::System, "cannot wait for signals: " + std::generic_category().message(errno));
    }
    if (events[1].revents != 0) {
      Tarn::DefaultLogSink().Error("the database file was replaced or removed; the process ends, to be started anew\n");
      manager.Stopping();
      service.End(GoneTime);
      return ServiceEnd::DatabaseGone;
    }
    const int number = signals.Take();
    if (number == SIGHUP) {
      manager.Reloading();
      service.Reload();
      manager.Ready();
    } else if (number != 0) {
      Tarn::DefaultLogSink().Notice("ending, as signal %d asks\n", number);
      manager.Stopping();
      service.End(service.Patience());
      return ServiceEnd::Asked;
    }
  }
}

} // namespace

ServiceEnd Serve(const Configuration& configuration, AccessDirectory::ChangeWriter& writer) {
  WatchSqliteErrors();
  if (!configuration.log.administration.empty()) {
    AccessDirectory::WatchRowChanges(); // before any file is opened
  }
  const ServiceLog log(configuration.log.level);
  const ServiceManager manager;
  const Signals signals;
  const Alarm gone;
  if (LocalAccessManager::InitSelfAccessManager(*configuration.dictionary).Failed()) {
    throw Failure(Failure::Kind::System, "the store of self access keys cannot be made");
  }
  // For administration: what is decided has managers of its own.
  if (LocalAccessManager::InitUserManager(*configuration.dictionary).Failed()) {
    throw Failure(Failure::Kind::System,
                  "cannot open the database " + AccessDirectory::Quoted(configuration.database_filename));
  }
  Service service(configuration, writer, gone);
  service.Start();
  manager.Ready();
  return RunUntilAsked(service, signals, gone, manager);
}

} // namespace Host
