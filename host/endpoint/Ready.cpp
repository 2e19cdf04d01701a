// /readyz: whether a decision can be made now.

#include "host/endpoint/Endpoints.h"

namespace Host {

Response AnswerReady(EndpointContext& context, const Request& /*request*/) {
  const bool is_ready = context.judge.IsReady();
  if (!is_ready) {
    context.counters.CountDatabaseFailure();
  }
  return {is_ready ? 200U : 503U,
          {{"Content-Type", "text/plain"}, {"Cache-Control", "no-store"}},
          is_ready ? "ready\n" : "unavailable\n"};
}

} // namespace Host
