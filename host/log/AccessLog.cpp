#include "host/log/AccessLog.h"

#include <string_view>

#include "host/http/Target.h"
#include "host/log/JsonLine.h"

namespace Host {

namespace {

/// "192.0.2.7:4711", "[2001:db8::1]:4711", "unix:1000" with the number of the user.
std::string PeerText(const Peer& peer) {
  if (peer.unix_domain) {
    return "unix:" + std::to_string(peer.user);
  }
  const bool is_ipv6 = peer.address.find(':') != std::string::npos;
  return (is_ipv6 ? "[" + peer.address + "]" : peer.address) + ":" + std::to_string(peer.port);
}

/// The value of an answer's field; empty for none.
std::string_view Value(const Response& response, std::string_view name) {
  for (const Field& field : response.fields) {
    if (EqualIgnoringCase(field.name, name)) {
      return field.value;
    }
  }
  return {};
}

} // namespace

void AccessLog::Write(const Request& request, const Response& response, std::chrono::microseconds taken) {
  if (!m_File.TakesLines()) {
    return;
  }
  thread_local std::string text;
  JsonLine line(text);
  // Of the target only the path: a query may hold what is nobody else's business.
  line.Time("time", std::chrono::system_clock::now())
      .Text("request_id", Value(response, "X-Request-Id"))
      .Text("peer", PeerText(request.peer))
      .Flag("tls", request.peer.tls)
      .Text("method", request.method)
      .Text("path", PathOf(request.target))
      .Number("status", response.status)
      .Number("bytes", response.body.size())
      .Number("microseconds", static_cast<std::uint64_t>(taken.count()));
  m_File.Write(line.Finish());
}

void AccessLog::WriteRefused(unsigned status, const Peer& peer) {
  if (!m_File.TakesLines()) {
    return;
  }
  thread_local std::string text;
  JsonLine line(text);
  line.Time("time", std::chrono::system_clock::now())
      .Null("request_id")
      .Text("peer", PeerText(peer))
      .Flag("tls", peer.tls)
      .Null("method")
      .Null("path")
      .Number("status", status)
      .Number("bytes", 0)
      .Number("microseconds", 0);
  m_File.Write(line.Finish());
}

} // namespace Host
