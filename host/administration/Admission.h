#pragma once

#include <memory>

#include "host/administration/Problem.h"
#include "host/decision/Judge.h"
#include "host/endpoint/Endpoints.h"

namespace Host {

/// Who asks, and whether they may: what is known of a request for one of the host's own paths before anything is done.
struct Admission {
  Question question;        ///< asked again when a body came in between
  std::string target_fault; ///< why the target is not in normal form; empty when it is
  std::string fault;        ///< what else is malformed; empty: nothing
  Verdict verdict;
  bool from_page = false; ///< asked by our own page, which asks for passwords itself
  bool is_known = false;  ///< whether the caller has proven to be a user
  bool is_admitted = false;

  const std::string& Caller() const noexcept { return verdict.judgement->user_id; }
};

/// Reads who asks; a self access key is used up by it. Then judges: the directory allows method and target, and the
/// caller is in the group of administrators, so that a wide filter for a site does not open the host; with `known`,
/// every user is admitted. Recorded by `Record` once it is final.
std::shared_ptr<Admission> Admit(EndpointContext& context, const Request& request, bool known);

/// Judges anew with what was read: the directory may have changed while a body came, or while the request waited.
void JudgeAgain(Judge& judge, const Configuration& configuration, Admission& admission, bool known);

/// What one who is not admitted is answered.
Problem ProblemOf(const Admission& admission, const Configuration& configuration);

} // namespace Host
