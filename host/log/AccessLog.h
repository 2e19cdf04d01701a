#pragma once

#include <chrono>
#include <string>

#include "host/http/Message.h"
#include "host/log/LogFile.h"

namespace Host {

/// The access log: a line for each request that the host answers, whatever it is about. Any thread may call it.
class AccessLog {
public:
  /// An empty name: nothing is written. Throws as `LogFile`.
  explicit AccessLog(const std::string& file) : m_File(file) {}

  void Write(const Request& request, const Response& response, std::chrono::microseconds taken);
  /// What never became a request.
  void WriteRefused(unsigned status, const Peer& peer);

  LogFile& File() noexcept { return m_File; }

private:
  LogFile m_File;
};

} // namespace Host
