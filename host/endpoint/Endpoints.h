#pragma once

#include <functional>
#include <string_view>
#include <vector>

#include "host/Configuration.h"
#include "host/Metrics.h"
#include "host/caller/Origin.h"
#include "host/decision/DecisionContext.h"
#include "host/decision/Judge.h"
#include "host/http/Message.h"
#include "host/http/Target.h"
#include "host/log/DecisionLog.h"

namespace Host {

/// What the endpoints of one thread have at hand.
struct EndpointContext {
  const Configuration& configuration;
  const OriginReader& origins;
  const TargetForm& target_form;
  DecisionContext& decisions;
  Judge& judge; ///< the thread's own
  Metrics& metrics;
  Metrics::Counters& counters; ///< the thread's own
  DecisionLog& decision_log;
  std::function<Metrics::Gauges()> measure; ///< what the process measures, the directory's rows apart

  /// Counts a verdict and writes it to the decision log.
  void Record(const Verdict& verdict) {
    counters.Count(verdict);
    decision_log.Write(verdict);
  }
};

/// A path that the host answers.
struct Endpoint {
  std::string_view path;    ///< with everything below it when it ends in "/"
  std::string_view methods; ///< as an `Allow` field lists them; empty: any method, each like the others
  Response (*answer)(EndpointContext& context, const Request& request);
};

/// All of them, in the order in which they are tried. The bodies of their requests are not waited for.
const std::vector<Endpoint>& Endpoints();

/// The answer to any request, whoever handles it.
Response AnswerRequest(EndpointContext& context, const Request& request);

// The endpoints themselves, a file each. What is read from a request, what is done with it, and what is written stand
// apart in them.
Response AnswerAuth(EndpointContext& context, const Request& request);
Response AnswerEnvoy(EndpointContext& context, const Request& request);
Response AnswerHealth(EndpointContext& context, const Request& request);
Response AnswerMetrics(EndpointContext& context, const Request& request);
Response AnswerReady(EndpointContext& context, const Request& request);

} // namespace Host
