#pragma once

#include <ostream>

#include "directory/transfer/DirectoryDifference.h"
#include "tool/DirectoryNames.h"

namespace Tool {

/// Tables for people, a section each that differs. A credential is never shown, only that it changed.
void PrintDifference(std::ostream& out, const DirectoryDifference& difference);

} // namespace Tool
