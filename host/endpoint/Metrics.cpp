// /metrics: for whoever is on the machine itself and not a proxy, which would open it to everybody behind it; for
// others as the administration is.

#include "directory/Failure.h"
#include "directory/file/Database.h"
#include "host/Network.h"
#include "host/endpoint/Administrators.h"
#include "host/endpoint/Endpoints.h"

namespace Host {

namespace {

bool IsOfThisMachine(const Peer& peer) {
  const ListenAddress address{ListenAddress::Kind::Tcp, "", peer.address, 0};
  return peer.unix_domain || address.Local();
}

/// Rows by table; what cannot be counted now is not known.
std::map<std::string, std::uint64_t> CountRows(const std::string& file) {
  constexpr std::pair<const char*, const char*> Tables[] = {
      {"users", "users"}, {"groups", "groups"}, {"memberships", "groupusers"}, {"filters", "filters"}};
  std::map<std::string, std::uint64_t> rows;
  try {
    AccessDirectory::Database database(file, AccessDirectory::Database::Access::Read);
    for (const auto& [name, table] : Tables) {
      rows[name] = static_cast<std::uint64_t>(database.Number(std::string("SELECT count(*) FROM \"") + table + "\""));
    }
  } catch (const AccessDirectory::Failure&) {
    rows.clear(); // the failures of decisions are counted; this number is only left out
  }
  return rows;
}

} // namespace

Response AnswerMetrics(EndpointContext& context, const Request& request) {
  if (!IsOfThisMachine(request.peer) || IsProxy(request.peer, context.configuration.proxy.peers)) {
    if (const std::optional<Response> refusal = RefuseUnlessAdministrator(context, request)) {
      return *refusal;
    }
  }
  Metrics::Gauges gauges = context.measure();
  gauges.directory_rows = CountRows(context.configuration.database_filename);
  return {200,
          {{"Content-Type", "text/plain; version=0.0.4"}, {"Cache-Control", "no-store"}},
          context.metrics.Text(gauges)};
}

} // namespace Host
