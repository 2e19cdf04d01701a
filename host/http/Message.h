#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace Host {

/// `EqualIgnoringCase` of texts of one size.
bool EqualInSizeIgnoringCase(std::string_view left, std::string_view right) noexcept;

/// Whether two texts are equal when ASCII letters of either case count as one. Most names differ in size already.
inline bool EqualIgnoringCase(std::string_view left, std::string_view right) noexcept {
  return left.size() == right.size() && EqualInSizeIgnoringCase(left, right);
}

/// A header field as received or to be sent. Names compare by `EqualIgnoringCase`. A received value has no white space
/// at its ends and no control byte but HTAB; bytes from 0x80 are possible (RFC 9110, 5.5).
struct Field {
  std::string name;
  std::string value;
};

/// Who is at the other end of a connection.
struct Peer {
  bool unix_domain = false;
  uid_t user = 0;      ///< of a Unix-domain peer, as the kernel tells it; else 0 and without meaning
  std::string address; ///< numeric IPv4 or IPv6 (an IPv4 client of an IPv6 listener as IPv4); "" for Unix-domain
  unsigned port = 0;   ///< the peer's own; 0 for Unix-domain
  bool tls = false;    ///< whether the connection is TLS
  std::string certificate_der; ///< the client's certificate in DER form, whoever issued it; "" without one
};

/// A request whose head was well-formed (RFC 9112). `method` and `target` are as in the request line: the method a
/// token of any case, the target visible ASCII in whatever form it came (origin, absolute, authority, asterisk).
struct Request {
  std::string method;
  std::string target;
  bool http_1_0 = false;
  std::vector<Field> fields; ///< in the order received
  std::string body;          ///< decoded; empty for `Handler::Body::Ignore`
  Peer peer;
  bool body_pending =
      false; ///< for `Handler::Body::Ignore`: the body has not come, the connection is closed after the answer
  std::shared_ptr<void> notes; ///< the handler's own, from `OnHead` to `Handle`

  /// The value of the first field of that name, or null.
  const std::string* Find(std::string_view name) const noexcept;
  /// How many fields have that name.
  std::size_t Count(std::string_view name) const noexcept;
};

/// An answer. The transport adds Content-Length, Date and Connection; a field of the handler with one of these names,
/// or one that holds a control byte, turns the whole answer into 500.
struct Response {
  unsigned status = 200;
  std::vector<Field> fields;
  std::string body;   ///< not sent in answer to HEAD, nor with 204 and 304; its length is told all the same for HEAD
  bool close = false; ///< close the connection after this answer
};

} // namespace Host
