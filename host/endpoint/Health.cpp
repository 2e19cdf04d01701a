// /healthz: whether the process serves at all.

#include "host/endpoint/Endpoints.h"

namespace Host {

Response AnswerHealth(EndpointContext& /*context*/, const Request& /*request*/) {
  return {200, {{"Content-Type", "text/plain"}, {"Cache-Control", "no-store"}}, "ok\n"};
}

} // namespace Host
