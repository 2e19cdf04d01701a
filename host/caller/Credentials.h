#pragma once

#include <string>

#include "host/caller/Origin.h"
#include "host/caller/SelfCalls.h"
#include "host/http/Message.h"

namespace Host {

/// What a request brings along to say who its caller is: the first of Basic credentials, a certificate, a self access
/// key, and the anonymous user. Not checked against the directory yet, but for the key.
struct Credentials {
  enum class Kind {
    None,
    Malformed,   ///< wrong credentials, never none: `reason` says why
    Password,    ///< `user_id` and `password`
    Certificate, ///< `certificate`, DER or a proxy's field
    Known,       ///< `user_id`, proven by a self access key
    Anonymous    ///< `user_id`, for whom nothing is to be proven
  };
  Kind kind = Kind::None;
  std::string user_id;
  std::string password;
  std::string certificate;
  bool is_der = false;
  std::string reason;
};

/// Reads the credentials of a request. A self access key is used up by it. `anonymous_user_id` may be empty: nobody.
Credentials ReadCredentials(const Request& request, const Origin& origin, SelfCalls& self_calls,
                            const std::string& anonymous_user_id);

} // namespace Host
