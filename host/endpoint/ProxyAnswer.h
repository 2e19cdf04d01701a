#pragma once

#include <string>

#include "host/caller/Origin.h"
#include "host/decision/Judge.h"
#include "host/http/Message.h"
#include "host/http/Target.h"

namespace Host {

/// A text between quotes, as header fields have it (RFC 9110, section 5.6.4: quoted-string).
std::string HeaderText(const std::string& text);

/// Judges the request that a proxy asks about. The asking request has to come from a proxy; what is malformed is not
/// asked about. Throws nothing but for lack of memory.
Verdict JudgeForProxy(const OriginReader& origins, const TargetForm& form, DecisionContext& decisions, Judge& judge,
                      const Request& request, ForwardedRequest forwarded);

/// Says it in the way of a proxy's subrequest: 200, 401, 403 or 503 and no body, since proxies take any other status
/// for a failure of their own.
Response AnswerProxy(const Verdict& verdict, const std::string& realm);

/// What is answered when there is no memory left for a verdict.
Response AnswerProxyUnavailable();

} // namespace Host
