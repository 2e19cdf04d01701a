#pragma once

#include "host/Configuration.h"

namespace Host {

/// What members that are right by themselves must not be together. Throws `AccessDirectory::Failure` of kind Input that
/// names the keys and says what to change; the file is not named.
void CheckRules(const Configuration& configuration);

} // namespace Host
