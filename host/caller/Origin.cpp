#include "host/caller/Origin.h"

#include <algorithm>
#include <array>

#include "host/caller/FieldNames.h"
#include "host/caller/RequestId.h"

namespace Host {

namespace {

constexpr const char* RequestIdField = "X-Request-Id";

/// Takes the value of a field that may be there once; false, with `fault` set, when it is there in another way.
bool TakeSingle(const Request& request, const std::string& name, std::string& value, std::string& fault) {
  SingleField field = FindSingle(request.fields, name);
  fault = std::move(field.fault);
  if (!fault.empty()) {
    return false;
  }
  if (field.value != nullptr) {
    value = *field.value;
  }
  return true;
}

/// The last of a list of addresses: the one that the proxy itself has seen. Not numeric: a fault.
bool TakeAddress(const std::string& value, std::string& address) {
  const std::size_t comma = value.find_last_of(',');
  const std::size_t begin = value.find_first_not_of(" \t", comma == std::string::npos ? 0 : comma + 1);
  address = begin == std::string::npos ? std::string() : value.substr(begin);
  return address.empty() || ParseAddress(address).has_value();
}

} // namespace

bool IsProxy(const Peer& peer, const std::vector<ProxyPeer>& proxies) {
  const std::optional<AddressBytes> address = peer.unix_domain ? std::nullopt : ParseAddress(peer.address);
  return std::any_of(proxies.begin(), proxies.end(), [&](const ProxyPeer& proxy) {
    switch (proxy.kind) {
    case ProxyPeer::Kind::Unix:
      return peer.unix_domain;
    case ProxyPeer::Kind::UnixUser:
      return peer.unix_domain && peer.user == proxy.user;
    case ProxyPeer::Kind::Network:
      return address && proxy.network.Contains(*address);
    }
    return false;
  });
}

OriginReader::OriginReader(const Configuration& configuration)
    : m_Proxies(configuration.proxy.peers),
      m_MethodField(configuration.proxy.headers == HeaderFamily::Original ? "X-Original-Method" : "X-Forwarded-Method"),
      m_TargetField(configuration.proxy.headers == HeaderFamily::Original ? "X-Original-URI" : "X-Forwarded-Uri"),
      m_AddressField(configuration.proxy.client_address), m_CertificateField(configuration.proxy.certificate_name) {}

Origin OriginReader::Read(const Request& request) const {
  Origin origin;
  origin.is_proxy = IsProxy(request.peer, m_Proxies);
  if (request.peer.tls) {
    origin.certificate = request.peer.certificate_der;
    origin.is_der = true;
  }
  if (!origin.is_proxy) {
    origin.request_id = NewRequestId();
    origin.address = request.peer.address;
    return origin;
  }
  const std::string* const id = request.Find(RequestIdField);
  const bool is_usable = id != nullptr && IsRequestId(*id) && request.Count(RequestIdField) == 1;
  origin.request_id = is_usable ? *id : NewRequestId();

  std::string address;
  if (!m_AddressField.empty() && TakeSingle(request, m_AddressField, address, origin.fault) &&
      !TakeAddress(address, origin.address)) {
    origin.address.clear();
    origin.fault = "the field " + m_AddressField + " holds no numeric address";
  }
  if (origin.fault.empty() && !m_CertificateField.empty() && !request.peer.tls) {
    TakeSingle(request, m_CertificateField, origin.certificate, origin.fault);
  }
  return origin;
}

ForwardedRequest OriginReader::ReadForwarded(const Request& request) const {
  ForwardedRequest forwarded;
  if (!TakeSingle(request, m_MethodField, forwarded.method_name, forwarded.fault) ||
      !TakeSingle(request, m_TargetField, forwarded.target, forwarded.fault)) {
    return forwarded;
  }
  if (forwarded.method_name.empty() || forwarded.target.empty()) {
    forwarded.fault = "the field " + (forwarded.target.empty() ? m_TargetField : m_MethodField) + " is missing";
  } else if (!Perenna::StringToMethod(forwarded.method_name, forwarded.method)) {
    forwarded.fault = "the method is unknown"; // a list of methods is none of them
  }
  return forwarded;
}

ForwardedRequest OriginReader::ReadRequestLine(const Request& request, const std::string& prefix) {
  ForwardedRequest forwarded;
  forwarded.method_name = request.method;
  if (request.target.compare(0, prefix.size(), prefix) == 0) {
    forwarded.target = request.target.substr(prefix.size());
  }
  if (!Perenna::StringToMethod(forwarded.method_name, forwarded.method)) {
    forwarded.fault = "the method is unknown";
  }
  return forwarded;
}

} // namespace Host
