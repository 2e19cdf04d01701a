#include "host/http/TargetRules.h"

#include "host/http/Target.h"

namespace Host {

AccessDirectory::TargetRules TargetRulesOf(bool with_query, const std::vector<std::string>& allows) {
  const TargetForm form(allows);
  return {with_query, allows, [form, with_query](const std::string& target) {
            return form.Fault(target).empty() && (with_query || target.find('?') == std::string::npos);
          }};
}

} // namespace Host
