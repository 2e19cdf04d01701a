#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "host/administration/Admission.h"
#include "host/administration/Call.h"
#include "host/administration/Route.h"
#include "host/endpoint/Endpoints.h"
#include "host/http/Handler.h"
#include "host/log/AccessLog.h"

namespace Host {

/// Everything under "/access/". Requests are admitted on the threads that serve, where a decision is cheap, and worked
/// off by threads of its own with connections of their own: a list of a hundred thousand users, or a batch of calls to
/// this very host, delays no decision. The lock guards the queues and is not held while a request is worked on.
class Administration {
public:
  /// `context` and `access_log` outlive it.
  Administration(AdministrationContext context, AccessLog& access_log);
  /// Ends what is under way; what waits gets no answer. The server's threads must have ended, the server itself not.
  ~Administration();
  Administration(const Administration&) = delete;
  Administration& operator=(const Administration&) = delete;

  static bool Serves(std::string_view path) noexcept;

  // For the handlers of the server's threads.
  Handler::Body OnHead(EndpointContext& endpoint, Request& request) const;
  std::size_t BodyLimit(const Request& request) const;
  std::optional<Response> Handle(EndpointContext& endpoint, Request& request, const Handler::Deferral& defer);

private:
  struct Job;
  /// Threads that work off a queue.
  struct Lane {
    std::deque<std::unique_ptr<Job>> jobs;
    std::condition_variable wake;
    std::vector<std::thread> threads;
  };

  void Run(Lane& lane);
  void Work(Job& job, std::unique_ptr<Judge>& judge);
  Response Answer(Job& job, std::unique_ptr<Judge>& judge);
  void Log(const Job& job, const Call* call, unsigned status);

  AdministrationContext m_Context;
  AccessLog& m_AccessLog;
  std::mutex m_Mutex;
  bool m_Stop = false;
  Lane m_Calls;
  Lane m_Batches; // apart: a batch waits for calls
};

} // namespace Host
