#pragma once

#include <cstdint>
#include <string_view>

#include "host/http/Message.h"

namespace Host {

/// What a head says about the bytes after it, and about the connection.
struct Framing {
  std::uint64_t content_length = 0;
  bool chunked = false;
  bool keep_alive = false;
  bool expects_continue = false; ///< the client sends its body once it was told to

  bool HasBody() const noexcept { return chunked || content_length != 0; }
};

/// Reads a head, complete to its empty line, every line ended by CRLF and none of them folded (`HeadScanner` sees to
/// that), into method, target, version and fields of `request`, whose memory is used again. Returns 0, or the status to
/// refuse it with (RFC 9112; stricter wherever two readers could disagree):
///   400  malformed; no Host in 1.1, or more than one, or one that is not a host; Content-Length repeated, listed or
///   not
///        digits; Transfer-Encoding repeated, in 1.0, or beside Content-Length
///   417  an expectation other than 100-continue
///   501  a transfer coding other than chunked
///   505  a version of HTTP other than 1.0 and 1.1
unsigned ParseHead(std::string_view head, Request& request, Framing& framing);

/// Whether `text` is a host with an optional port as a Host field may hold it: letters, digits, `.`, `-` and `_`, or an
/// IPv6 address in brackets; a port up to 65535.
bool ValidHost(std::string_view text) noexcept;

} // namespace Host
