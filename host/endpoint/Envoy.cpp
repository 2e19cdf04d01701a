// "/envoy/...": what Envoy's ext_authz asks over HTTP with this prefix: the request's own method and target.

#include <exception>

#include "host/endpoint/Endpoints.h"
#include "host/endpoint/ProxyAnswer.h"

namespace Host {

Response AnswerEnvoy(EndpointContext& context, const Request& request) try {
  const Verdict verdict = JudgeForProxy(context.origins, context.target_form, context.decisions, context.judge, request,
                                        OriginReader::ReadRequestLine(request, "/envoy"));
  context.Record(verdict);
  return AnswerProxy(verdict, context.configuration.auth_realm);
} catch (const std::exception&) {
  return AnswerProxyUnavailable();
}

} // namespace Host
