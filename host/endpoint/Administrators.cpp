#include "host/endpoint/Administrators.h"

#include <memory>
#include <string>
#include <utility>

#include "host/caller/Credentials.h"
#include "host/http/Target.h"

namespace Host {

namespace {

/// Whether `groups`, joined by commas, holds `group`.
bool Holds(const std::string& groups, const std::string& group) {
  return ("," + groups + ",").find("," + group + ",") != std::string::npos;
}

Verdict Judged(EndpointContext& context, const Request& request) {
  const Origin origin = context.origins.Read(request);
  Question question;
  question.method_name = request.method;
  question.target = request.target;
  question.address = origin.address;
  question.request_id = origin.request_id;
  if (!origin.fault.empty()) {
    return context.judge.Malformed(std::move(question), origin.fault);
  }
  if (const std::string fault = context.target_form.Fault(request.target); !fault.empty()) {
    return context.judge.Malformed(std::move(question), fault);
  }
  if (!Perenna::StringToMethod(request.method, question.method)) {
    return context.judge.Malformed(std::move(question), "the method is unknown");
  }
  question.credentials =
      ReadCredentials(request, origin, context.decisions.self_calls, context.configuration.anonymous_user_id);
  Verdict verdict = context.judge.Decide(std::move(question));
  if (verdict.What() == Outcome::Allowed && !Holds(verdict.judgement->groups, context.configuration.administrators)) {
    auto judgement = std::make_shared<Judgement>(*verdict.judgement);
    judgement->outcome = Outcome::Refused;
    judgement->reason = "refused: the user does not belong to the group of administrators";
    verdict.judgement = std::move(judgement);
  }
  return verdict;
}

unsigned StatusOf(Outcome outcome) {
  switch (outcome) {
  case Outcome::Unauthenticated:
    return 401;
  case Outcome::Throttled:
    return 429;
  case Outcome::Unavailable:
    return 503;
  default:
    return 403;
  }
}

} // namespace

std::optional<Response> RefuseUnlessAdministrator(EndpointContext& context, const Request& request) {
  const Verdict verdict = Judged(context, request);
  context.Record(verdict);
  if (verdict.What() == Outcome::Allowed) {
    return std::nullopt;
  }
  Response response;
  response.status = StatusOf(verdict.What());
  response.fields = {
      {"Content-Type", "text/plain"}, {"Cache-Control", "no-store"}, {"X-Request-Id", verdict.request_id}};
  if (response.status == 401) {
    response.fields.push_back(
        {"WWW-Authenticate", "Basic realm=\"" + context.configuration.auth_realm + "\", charset=\"UTF-8\""});
  } else if (response.status != 403) {
    response.fields.push_back({"Retry-After", std::to_string(verdict.retry_after_seconds)});
  }
  response.body = std::string(OutcomeName(verdict.What())) + "\n";
  return response;
}

} // namespace Host
