#pragma once

#include <optional>
#include <string_view>

#include "host/http/Message.h"

namespace Host {

/// A file of the page, as it is served.
struct StaticFile {
  std::string_view path; ///< "/access/page/app.js"
  std::string_view type; ///< its media type
  std::string_view bytes;
};

/// The answer to a GET or HEAD for the page: its files, which hold nothing secret and are for everyone, and the way to
/// them from "/". Nothing for every other request.
std::optional<Response> AnswerPage(const Request& request);

} // namespace Host
