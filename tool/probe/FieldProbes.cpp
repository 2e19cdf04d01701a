// Fields that must not reach the application. Only an application that shows what it is told can tell; where it says
// nothing of that kind, the finding is unclear.

#include "tool/probe/Prober.h"

namespace Tool {

namespace {

/// Whether what holds the marker shows that a field of the client got through.
void ExpectDropped(Prober& prober, Hole hole, const std::vector<std::string>& lines, const std::string& marker) {
  const ProbeRequest request{prober.Task().open_target, lines};
  const ProbeAnswer answer = prober.Ask(request);
  const bool is_answered = answer.status >= 200 && answer.status <= 299;
  const bool is_application_error = answer.status == 404 || answer.status == 405 || answer.status == 501;
  if (answer.Holds(marker)) {
    prober.Found(hole, request, SeenStatus(answer) + ", and the answer shows it");
  } else if (is_application_error && hole != Hole::Identity) {
    prober.Found(hole, request, SeenStatus(answer) + " instead of " + SeenStatus(prober.Open()));
  } else if (is_answered && prober.IsSteady() && answer.body != prober.Open().body) {
    prober.Unclear(hole, request, "the answer differs from that without the field");
  }
}

void ProbeIdentity(Prober& prober) {
  const std::string& marker = prober.Marker();
  for (const char* const name : {"Remote-User", "Remote-Groups"}) {
    const std::string line = name + (": " + marker);
    ExpectDropped(prober, Hole::Identity, {line}, marker);
    ExpectDropped(prober, Hole::Identity, {line, line}, marker);
    ExpectDropped(prober, Hole::Identity, {"X-Rest: x\n" + line}, marker);
  }
  for (const char* const name : {"Remote_User", "Remote.User", "Remote-User ", "Remote_Groups", "Remote.Groups"}) {
    ExpectDropped(prober, Hole::IdentityAlias, {name + (": " + marker)}, marker);
  }
  const ProbeRequest hiding{prober.Task().open_target, {"Connection: Remote-User, Remote-Groups"}};
  if (!prober.ShowsUser()) {
    prober.Unclear(Hole::Identity, {prober.Task().open_target},
                   "the answer does not show whom the application takes the caller for");
  } else if (const ProbeAnswer answer = prober.Ask(hiding);
             answer.status >= 200 && answer.status <= 299 && !answer.Holds(prober.Task().user)) {
    prober.Found(Hole::IdentityLost, hiding, SeenStatus(answer) + ", and the answer does not name the user");
  }
}

} // namespace

void ProbeApplicationFields(Prober& prober) {
  ProbeIdentity(prober);
  const std::string& marker = prober.Marker();
  for (const char* const name :
       {"X-HTTP-Method-Override", "X-HTTP-Method", "X-Method-Override", "X_HTTP_Method_Override"}) {
    ExpectDropped(prober, Hole::MethodOverride, {name + (": " + marker)}, marker);
  }
  for (const char* const name : {"X-Original-URL", "X-Rewrite-URL", "X_Original_URL", "X_Rewrite_URL"}) {
    ExpectDropped(prober, Hole::TargetOverride, {name + (": /" + marker)}, marker);
  }
  // An address of documentation (RFC 5737), which no client has.
  ExpectDropped(prober, Hole::ClientAddress, {"X-Real-IP: 192.0.2.77"}, "192.0.2.77");
}

} // namespace Tool
