#include "host/decision/LoggedTarget.h"

#include "host/http/Target.h"

namespace Host {

AccessDirectory::TargetOf LoggedTargets(TargetPart part, const std::vector<std::string>& allows) {
  const bool sees_query = part == TargetPart::PathAndQuery;
  return [form = TargetForm(allows),
          sees_query](const AccessDirectory::LoggedRequest& request) -> std::optional<std::string> {
    const bool lacks_query = sees_query && !request.whole_target && !QueryOf(request.target).empty();
    if (lacks_query || !form.Fault(request.target).empty()) { // a digest stands for the query
      return std::nullopt;
    }
    return sees_query ? request.target : std::string(PathOf(request.target));
  };
}

} // namespace Host
