#pragma once

namespace Tool {

/// From here on, the signals that ask the process to end, and are not ignored, remove files that are half made before
/// they end it. A part of the program with handlers of its own gives these back when it is done.
void RemoveUnfinishedFilesOnSignals() noexcept;

} // namespace Tool
