#include "host/endpoint/ProxyAnswer.h"

#include "host/caller/RequestId.h"

namespace Host {

namespace {

unsigned StatusOf(Outcome outcome) noexcept {
  switch (outcome) {
  case Outcome::Allowed:
    return 200;
  case Outcome::Unauthenticated:
    return 401;
  case Outcome::Refused:
  case Outcome::Throttled:
  case Outcome::Malformed:
    return 403;
  case Outcome::Unavailable:
    break;
  }
  return 503;
}

} // namespace

std::string HeaderText(const std::string& text) {
  std::string quoted = "\"";
  for (const char byte : text) {
    if (byte == '"' || byte == '\\') {
      quoted += '\\';
    }
    quoted += byte;
  }
  return quoted + '"';
}

Verdict JudgeForProxy(const OriginReader& origins, const TargetForm& form, DecisionContext& decisions, Judge& judge,
                      const Request& request, ForwardedRequest forwarded) {
  Origin origin = origins.Read(request);
  Question question;
  question.for_proxy = true;
  question.request_id = std::move(origin.request_id);
  question.address = std::move(origin.address);
  question.method = forwarded.method;
  question.method_name = std::move(forwarded.method_name);
  question.target = std::move(forwarded.target);

  std::string fault;
  if (!origin.is_proxy) {
    fault = "the peer is not one of Proxy.Peers";
  } else if (!origin.fault.empty()) {
    fault = std::move(origin.fault);
  } else if (!forwarded.fault.empty()) {
    fault = std::move(forwarded.fault);
  } else if (fault = form.Fault(question.target); !fault.empty()) {
    fault = "the target is not in normal form: " + fault;
  }
  if (!fault.empty()) {
    return judge.Malformed(std::move(question), fault);
  }
  question.credentials = ReadCredentials(request, origin, decisions.self_calls, decisions.anonymous_user_id);
  return judge.Decide(std::move(question));
}

Response AnswerProxy(const Verdict& verdict, const std::string& realm) {
  const Outcome outcome = verdict.What();
  Response response;
  response.status = StatusOf(outcome);
  response.fields.reserve(4); // as many as there are at most
  response.fields.push_back({"X-Access-Outcome", OutcomeName(outcome)});
  response.fields.push_back({"X-Request-Id", verdict.request_id});
  if (outcome == Outcome::Allowed) {
    // Both, also when empty: the proxy has to overwrite what its client sent under these names.
    response.fields.push_back({"Remote-User", verdict.judgement->user_id});
    response.fields.push_back({"Remote-Groups", verdict.judgement->groups});
  } else if (outcome == Outcome::Unauthenticated) {
    response.fields.push_back({"WWW-Authenticate", "Basic realm=" + HeaderText(realm) + ", charset=\"UTF-8\""});
  } else if (verdict.retry_after_seconds > 0) {
    response.fields.push_back({"Retry-After", std::to_string(verdict.retry_after_seconds)});
  }
  return response;
}

Response AnswerProxyUnavailable() {
  Response response;
  response.status = StatusOf(Outcome::Unavailable);
  response.fields = {
      {"X-Access-Outcome", OutcomeName(Outcome::Unavailable)}, {"X-Request-Id", NewRequestId()}, {"Retry-After", "1"}};
  return response;
}

} // namespace Host
