#pragma once

#include <string>
#include <vector>

#include "directory/replay/Replay.h"
#include "host/Configuration.h"

namespace Host {

/// What a host with these settings makes of a logged request before it asks the directory. Where filters see the query,
/// a line that holds only its digest cannot be judged anew. Throws as `TargetForm`.
AccessDirectory::TargetOf LoggedTargets(TargetPart part, const std::vector<std::string>& allows);

} // namespace Host
