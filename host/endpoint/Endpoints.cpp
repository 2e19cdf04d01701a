#include "host/endpoint/Endpoints.h"

#include <algorithm>
#include <string>

#include "host/http/Target.h"

namespace Host {

namespace {

constexpr std::string_view Reading = "GET, HEAD";

/// Whether `methods`, as an `Allow` field lists them, holds `method`.
bool Lists(std::string_view methods, std::string_view method) {
  for (std::size_t begin = 0; begin < methods.size();) {
    const std::size_t end = std::min(methods.find(", ", begin), methods.size());
    if (methods.substr(begin, end - begin) == method) {
      return true;
    }
    begin = end + 2;
  }
  return false;
}

bool Serves(const Endpoint& endpoint, std::string_view path) {
  return endpoint.path.back() == '/' ? path.substr(0, endpoint.path.size()) == endpoint.path : path == endpoint.path;
}

} // namespace

const std::vector<Endpoint>& Endpoints() {
  static const std::vector<Endpoint> endpoints = {
      {"/auth", "", AnswerAuth},         {"/envoy/", "", AnswerEnvoy},         {"/healthz", Reading, AnswerHealth},
      {"/readyz", Reading, AnswerReady}, {"/metrics", Reading, AnswerMetrics},
  };
  return endpoints;
}

Response AnswerRequest(EndpointContext& context, const Request& request) {
  const std::string_view path = PathOf(request.target);
  const auto& endpoints = Endpoints();
  const auto endpoint =
      std::find_if(endpoints.begin(), endpoints.end(), [path](const Endpoint& each) { return Serves(each, path); });
  if (endpoint == endpoints.end()) {
    return {404, {{"Content-Type", "text/plain"}}, "not found\n"};
  }
  if (!endpoint->methods.empty() && !Lists(endpoint->methods, request.method)) {
    return {405, {{"Allow", std::string(endpoint->methods)}, {"Content-Type", "text/plain"}}, "method not allowed\n"};
  }
  return endpoint->answer(context, request);
}

} // namespace Host
