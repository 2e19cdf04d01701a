#pragma once

#include <map>
#include <string>
#include <string_view>

#include "host/administration/Route.h"

namespace Host {

// What a request says beside its path, held against its route. Both throw `Refusal`, which names the offending thing.

/// The parameters of a query (application/x-www-form-urlencoded: "+" is a space), each at most once, none unknown.
std::map<std::string, std::string> ReadQuery(const Route& route, std::string_view query);

/// The body: its media type (RFC 9110, 8.3), JSON (RFC 8259) without repeated names, in the route's form; texts without
/// NUL. Null where the route has none, and for `BodyForm::Directory`, which its operation reads.
AccessDirectory::Json ReadBody(const Route& route, const Request& request);

} // namespace Host
