#pragma once

namespace AccessDirectory {}

namespace Tool {

// The tool is the directory's face at a terminal and speaks of its things by their own names.
using namespace AccessDirectory; // NOLINT(google-build-using-namespace)

} // namespace Tool
