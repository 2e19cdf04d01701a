#include "host/administration/Admission.h"

#include <utility>

#include "host/caller/Credentials.h"
#include "host/endpoint/ProxyAnswer.h"
#include "host/http/Target.h"

namespace Host {

namespace {

/// Whether `groups`, joined by commas, holds `group`.
bool Holds(const std::string& groups, const std::string& group) {
  return ("," + groups + ",").find("," + group + ",") != std::string::npos;
}

void SetJudgement(Verdict& verdict, Outcome outcome, const char* reason) {
  auto judgement = std::make_shared<Judgement>(*verdict.judgement);
  judgement->outcome = outcome;
  judgement->reason = reason;
  judgement->decider.reset();
  verdict.judgement = std::move(judgement);
}

} // namespace

std::shared_ptr<Admission> Admit(EndpointContext& context, const Request& request, bool known) {
  auto admission = std::make_shared<Admission>();
  const Origin origin = context.origins.Read(request);
  Question& question = admission->question;
  question.method_name = request.method;
  question.target = request.target;
  question.address = origin.address;
  question.request_id = origin.request_id;
  admission->fault = origin.fault;
  const std::string* const with = request.Find("X-Requested-With");
  admission->from_page = with != nullptr && *with == "perenna-page";
  admission->target_fault = context.target_form.Fault(request.target);
  // HEAD is judged as HEAD: a filter names it or not.
  if (!Perenna::StringToMethod(request.method, question.method) && admission->fault.empty()) {
    admission->fault = "the method is unknown";
  }
  if (admission->fault.empty() && admission->target_fault.empty()) {
    question.credentials =
        ReadCredentials(request, origin, context.decisions.self_calls, context.configuration.anonymous_user_id);
  }
  JudgeAgain(context.judge, context.configuration, *admission, known);
  return admission;
}

void JudgeAgain(Judge& judge, const Configuration& configuration, Admission& admission, bool known) {
  const std::string& fault = admission.fault.empty() ? admission.target_fault : admission.fault;
  if (!fault.empty()) {
    admission.verdict = judge.Malformed(admission.question, fault);
    return;
  }
  Verdict& verdict = admission.verdict;
  verdict = judge.Decide(admission.question);
  const Outcome outcome = verdict.What();
  const bool is_anonymous = admission.question.credentials.kind == Credentials::Kind::Anonymous;
  admission.is_known = (outcome == Outcome::Allowed || outcome == Outcome::Refused) && !is_anonymous;
  admission.is_admitted = false;
  if (known) {
    admission.is_admitted = admission.is_known;
    if (admission.is_known && outcome == Outcome::Refused) {
      SetJudgement(verdict, Outcome::Allowed, "allowed to every user");
    } else if (is_anonymous && outcome == Outcome::Allowed) {
      SetJudgement(verdict, Outcome::Unauthenticated, "refused: there are no credentials");
    }
  } else if (outcome == Outcome::Allowed && !Holds(verdict.judgement->groups, configuration.administrators)) {
    SetJudgement(verdict, is_anonymous ? Outcome::Unauthenticated : Outcome::Refused,
                 "refused: the user does not belong to the group of administrators");
  } else {
    admission.is_admitted = outcome == Outcome::Allowed;
  }
}

Problem ProblemOf(const Admission& admission, const Configuration& configuration) {
  if (admission.fault.empty() && !admission.target_fault.empty()) {
    return {400, "the path is not in normal form: " + admission.target_fault +
                     "; an id that it cannot carry is managed with the tool"};
  }
  const std::string retry = std::to_string(admission.verdict.retry_after_seconds);
  switch (admission.verdict.What()) {
  case Outcome::Unauthenticated:
    return {401,
            "no credentials, or wrong ones",
            {},
            {{"WWW-Authenticate", (admission.from_page ? "Page realm=" : "Basic realm=") + // a scheme without a dialog
                                      HeaderText(configuration.auth_realm) +
                                      (admission.from_page ? "" : ", charset=\"UTF-8\"")}}};
  case Outcome::Throttled:
    return {429, "too many failed logins", {}, {{"Retry-After", retry}}};
  case Outcome::Unavailable:
    return {503, "the directory cannot be read", {}, {{"Retry-After", retry}}};
  case Outcome::Malformed:
    return {403, "the request is malformed: " + admission.fault};
  default:
    return {403, "this takes a filter that allows it and the group of administrators"};
  }
}

} // namespace Host
