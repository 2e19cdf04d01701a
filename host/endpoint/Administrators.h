#pragma once

#include <optional>

#include "host/endpoint/Endpoints.h"

namespace Host {

/// What a request for one of the host's own paths is answered unless its caller may administer: the module allows its
/// method and target, and the caller is in the group of administrators, so that a wide filter for a site does not open
/// the host. Nothing when the caller may. The verdict is recorded.
std::optional<Response> RefuseUnlessAdministrator(EndpointContext& context, const Request& request);

} // namespace Host
