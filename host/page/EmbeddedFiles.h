#pragma once

#include <vector>

#include "host/page/StaticFiles.h"

namespace Host {

/// The page's files; made by Embed.cmake from the folder "files".
const std::vector<StaticFile>& EmbeddedFiles();

} // namespace Host
