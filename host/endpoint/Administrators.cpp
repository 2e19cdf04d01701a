#include "host/endpoint/Administrators.h"

#include "host/administration/Admission.h"

namespace Host {

std::optional<Response> RefuseUnlessAdministrator(EndpointContext& context, const Request& request) {
  const auto admission = Admit(context, request, false);
  context.Record(admission->verdict);
  if (admission->is_admitted) {
    return std::nullopt;
  }
  return ProblemAnswer(ProblemOf(*admission, context.configuration), admission->question.request_id);
}

} // namespace Host
