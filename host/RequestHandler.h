#pragma once

#include <functional>

#include "host/administration/Administration.h"
#include "host/caller/Origin.h"
#include "host/decision/Judge.h"
#include "host/endpoint/Endpoints.h"
#include "host/http/Handler.h"
#include "host/log/AccessLog.h"

namespace Host {

/// What the handlers of all threads share; outlives them.
struct HandlerContext {
  const Configuration& configuration;
  const OriginReader& origins;
  const TargetForm& target_form;
  DecisionContext& decisions;
  Metrics& metrics;
  DecisionLog& decision_log;
  AccessLog& access_log;
  Administration& administration;
  std::function<Metrics::Gauges()> measure;
};

/// Answers the requests of one thread: its own judge and counters behind the table of endpoints.
class RequestHandler : public Handler {
public:
  /// Throws `AccessDirectory::Failure` when the directory cannot be opened.
  explicit RequestHandler(const HandlerContext& context);

  Body OnHead(Request& request) override;
  std::size_t BodyLimit(const Request& request) override { return m_Administration.BodyLimit(request); }
  void BeginGroup() override { m_Judge.BeginGroup(); }
  std::optional<Response> Handle(Request& request, const Deferral& defer) override;
  void OnRefused(unsigned status, const Peer& peer) override { m_AccessLog.WriteRefused(status, peer); }
  void OnTick() override;

private:
  std::optional<Response> Answer(Request& request, const Deferral& defer);

  DecisionContext& m_Decisions;
  AccessLog& m_AccessLog;
  Administration& m_Administration;
  Judge m_Judge;
  EndpointContext m_Endpoints;
};

} // namespace Host
