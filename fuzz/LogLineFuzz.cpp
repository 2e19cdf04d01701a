// Lines of a log that strangers' requests wrote.

#include "Require.h"
#include "directory/replay/RequestLog.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto request = AccessDirectory::ReadLogLine(std::string(Fuzz::Text(data, size)));
  Fuzz::Require(request.unjudged != AccessDirectory::LoggedRequest::Unjudged::None ||
                    (request.method < Perenna::METH_MAX && !request.target.empty()),
                "what is judged has a method and a target", request.target);
  return 0;
}
