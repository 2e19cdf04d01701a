#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

#include "PN_PList.h"
#include "TN_log.h"
#include "host/Network.h"
#include "host/http/net/Listener.h"

namespace Host {

/// One entry of "Proxy.Peers": peers whose forwarded headers count.
struct ProxyPeer {
  enum class Kind { Unix, UnixUser, Network };
  Kind kind = Kind::Unix;
  uid_t user = 0;  ///< UnixUser: who the socket's credentials must name
  Network network; ///< Network
};

enum class TargetPart { Path, PathAndQuery };
enum class HeaderFamily { Original, Forwarded };
enum class CertificateForm { Rfc9440, PemEscaped, DerBase64, Xfcc };
enum class ClientCertificates { None, Optional };
enum class OnStale { Serve, Refuse };

/// The configuration of `perenna-access serve`, checked: file names are absolute, lists parsed, and the members agree
/// with each other. docs/host.md and the table of keys say what each means; the members bear the names of the keys.
struct Configuration {
  std::string file; ///< the file it was read from, absolute
  /// The whole of it, as the access module takes it. Never null.
  std::shared_ptr<const Perenna::PListDict> dictionary;

  std::string database_filename;
  std::string auth_realm;
  std::string anonymous_user_id;  ///< empty: nobody
  std::string path_filter_bypass; ///< empty: nothing

  std::vector<ListenAddress> listen;
  bool plain_text = false;
  std::string socket_group; ///< empty: the process's own
  unsigned threads = 0;     ///< 0: one a core
  std::string administrators;
  TargetPart target = TargetPart::Path;
  std::vector<std::string> target_allows;

  struct {
    std::vector<ProxyPeer> peers;
    HeaderFamily headers = HeaderFamily::Original;
    std::string client_address;   ///< a header's name; empty: none is read
    std::string certificate_name; ///< a header's name; empty: none is read
    CertificateForm certificate_format = CertificateForm::Rfc9440;
  } proxy;
  struct {
    std::string certificate;
    std::string key;
    ClientCertificates client_certificates = ClientCertificates::None;
  } tls;
  std::uint64_t cached_decisions = 0;
  struct {
    unsigned failures = 0;
    unsigned window_seconds = 0;
    unsigned maximum_delay_seconds = 0;
  } throttle;
  struct {
    std::string access;         ///< empty: not written
    std::string decisions;      ///< empty: not written
    std::string administration; ///< empty: not written
    Tarn::LogType_t level = Tarn::LOG_NOTICE;
  } log;
  struct {
    std::uint64_t header_bytes = 0;
    std::uint64_t body_bytes = 0;
    std::uint64_t import_bytes = 0;
    unsigned connections = 0;
    unsigned idle_seconds = 0;
    unsigned request_seconds = 0;
  } limits;
  struct {
    bool configured = false; ///< whether there are endpoints
    OnStale on_stale = OnStale::Serve;
    unsigned stale_seconds = 0;
  } sync;
};

/// Reads and checks `file`, JSON (RFC 8259) with an object at its top. Throws `AccessDirectory::Failure` of kind Input
/// that names the file, the key, its value and what is accepted; for a key that there is not, the nearest one.
Configuration ReadConfiguration(const std::string& file);

/// What a configuration says about the directory, whoever opens it.
struct DirectoryPart {
  std::string database_filename; ///< absolute
  std::string administrators;
  std::string anonymous_user_id; ///< empty: nobody
  TargetPart target = TargetPart::Path;
  std::vector<std::string> target_allows;
  std::string administration_log; ///< empty: not written
};
/// Of the rest only the names are checked, so that a directory can be repaired while the host's own part is being
/// written. Throws as `ReadConfiguration`.
DirectoryPart ReadDirectoryPart(const std::string& file);

} // namespace Host
