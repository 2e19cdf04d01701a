// /readyz: whether a decision can be made now. A copy of the directory that is older than wanted is "stale" whether
// decisions go on from it (200) or not (503).

#include "host/endpoint/Endpoints.h"

namespace Host {

Response AnswerReady(EndpointContext& context, const Request& /*request*/) {
  const bool is_ready = context.judge.IsReady();
  const bool is_stale = context.judge.IsStale();
  if (!is_ready && !is_stale) {
    context.counters.CountDatabaseFailure();
  }
  return {is_ready ? 200U : 503U,
          {{"Content-Type", "text/plain"}, {"Cache-Control", "no-store"}},
          is_stale   ? "stale\n"
          : is_ready ? "ready\n"
                     : "unavailable\n"};
}

} // namespace Host
