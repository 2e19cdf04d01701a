#pragma once

#include <string>
#include <vector>

#include "host/http/Message.h"

namespace Host {

/// Why the field `name` cannot be trusted among `fields`, as a sentence's clause: it is there twice; it is there under
/// another name that differs only in what is neither letter nor digit, which many servers take for the same; or
/// `Connection` names it, which makes intermediaries drop it (RFC 9110, section 7.6.1). Empty when it can, also when
/// it is absent.
std::string FaultOfField(const std::vector<Field>& fields, const std::string& name);

} // namespace Host
