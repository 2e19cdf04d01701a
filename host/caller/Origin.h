#pragma once

#include <string>
#include <vector>

#include "PN_HTTP.h"
#include "host/Configuration.h"
#include "host/http/Message.h"

namespace Host {

/// Whether forwarded header fields of this peer count.
bool IsProxy(const Peer& peer, const std::vector<ProxyPeer>& proxies);

/// Where a request comes from, whatever it asks for.
struct Origin {
  bool is_proxy = false;
  std::string request_id;  ///< the proxy's, or a new one
  std::string address;     ///< the client's, numeric; empty when a proxy does not tell
  std::string certificate; ///< the client's: DER of our own TLS connection, else the proxy's field; empty for none
  bool is_der = false;     ///< `certificate` is DER; else it is in `Proxy.Certificate.Format`
  std::string fault;       ///< why the request is malformed, as a sentence's clause; empty when it is not
};

/// The request that a proxy asks about.
struct ForwardedRequest {
  Perenna::Method_t method = Perenna::METH_MAX;
  std::string method_name;
  std::string target;
  std::string fault; ///< as in Origin
};

/// Reads what a proxy says about its client. Only fields with the configured names count, each at most once; a field
/// whose name another server would take for one of them ("X_Original_URI"), or that `Connection` names, makes the
/// request malformed: someone hopes that two programs read different fields. Immutable, so any thread may use it.
class OriginReader {
public:
  explicit OriginReader(const Configuration& configuration);

  Origin Read(const Request& request) const;

  /// Method and target from the configured family of fields.
  ForwardedRequest ReadForwarded(const Request& request) const;
  /// Method and target from the request line, the target behind `prefix`.
  static ForwardedRequest ReadRequestLine(const Request& request, const std::string& prefix);

private:
  std::vector<ProxyPeer> m_Proxies;
  std::string m_MethodField;
  std::string m_TargetField;
  std::string m_AddressField;
  std::string m_CertificateField;
};

} // namespace Host
