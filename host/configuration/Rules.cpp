#include "host/configuration/Rules.h"

#include <algorithm>
#include <set>
#include <string>

#include "directory/Failure.h"
#include "directory/text/Text.h"

namespace Host {

namespace {

using AccessDirectory::Quoted;

[[noreturn]] void Refuse(const std::string& message) {
  throw AccessDirectory::Failure(AccessDirectory::Failure::Kind::Input, message);
}

void CheckListeners(const Configuration& configuration) {
  if (configuration.listen.empty()) {
    Refuse("Host.Listen names nothing to listen on: give \"unix:/run/perenna-access/host.sock\" or \"127.0.0.1:8400\"");
  }
  std::set<std::string> seen;
  for (const ListenAddress& listener : configuration.listen) {
    const std::string written = listener.Text();
    if (!seen.insert(written).second && listener.port != 0) {
      Refuse("Host.Listen: " + Quoted(written) + " is there twice");
    }
    if (listener.kind == ListenAddress::Kind::Tcp && !configuration.plain_text && !listener.Local()) {
      Refuse("Host.Listen: " + Quoted(written) + " would carry passwords in plain text: give \"https:" + written +
             "\", or set Host.PlainText to true where something else protects the network");
    }
    if (listener.kind == ListenAddress::Kind::Tls &&
        (configuration.tls.certificate.empty() || configuration.tls.key.empty())) {
      Refuse("Host.Listen: " + Quoted(written) + " needs Host.TLS.Certificate and Host.TLS.Key");
    }
  }
}

/// Any local user may connect where only the socket's mode says who may; what decides who somebody is needs more.
void CheckCertificateHeader(const Configuration& configuration) {
  if (configuration.proxy.certificate_name.empty()) {
    return;
  }
  const auto& peers = configuration.proxy.peers;
  if (peers.empty() || std::any_of(peers.begin(), peers.end(),
                                   [](const ProxyPeer& peer) { return peer.kind == ProxyPeer::Kind::Unix; })) {
    Refuse("Host.Proxy.Certificate needs Host.Proxy.Peers that are all \"unix:USER\" or networks");
  }
}

} // namespace

void CheckRules(const Configuration& configuration) {
  CheckListeners(configuration);
  CheckCertificateHeader(configuration);
}

} // namespace Host
