// "/auth": a proxy asks whether it may pass a request on, whose method and target it tells in header fields.

#include <exception>

#include "host/endpoint/Endpoints.h"
#include "host/endpoint/ProxyAnswer.h"

namespace Host {

Response AnswerAuth(EndpointContext& context, const Request& request) try {
  const Verdict verdict = JudgeForProxy(context.origins, context.target_form, context.decisions, context.judge, request,
                                        context.origins.ReadForwarded(request));
  context.Record(verdict);
  return AnswerProxy(verdict, context.configuration.auth_realm);
} catch (const std::exception&) {
  return AnswerProxyUnavailable();
}

} // namespace Host
