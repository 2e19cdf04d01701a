#pragma once

#include <string>

#include "PN_HTTP.h"
#include "host/caller/Credentials.h"

namespace Host {

/// What a judge is asked: may the caller do `method` on `target`.
struct Question {
  Perenna::Method_t method = Perenna::METH_MAX;
  std::string method_name; ///< as received
  std::string target;      ///< in normal form
  Credentials credentials;
  std::string address; ///< the client's, numeric; empty when unknown: then nothing is throttled
  std::string request_id;
  /// Whether the answer goes to a proxy: the bypass applies, and an allowed user's id and groups have to fit into
  /// header fields.
  bool for_proxy = false;
};

} // namespace Host
