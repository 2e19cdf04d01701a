// Requests for the protected target that a proxy may judge as something else: spelled in other ways, or with fields
// that say what to judge.

#include "tool/probe/PathSpellings.h"
#include "tool/probe/Prober.h"

namespace Tool {

namespace {

void ExpectClosed(Prober& prober, Hole hole, const ProbeRequest& request) {
  const ProbeAnswer answer = prober.Ask(request);
  if (prober.IsThrough(answer)) {
    prober.Found(hole, request, SeenStatus(answer));
  } else if (answer.status == 404) {
    prober.Unclear(hole, request, "404: refused, or not found by the application?");
  }
}

} // namespace

void ProbePaths(Prober& prober) {
  for (const std::string& spelling : PathSpellings(prober.Task().protected_target, prober.Task().open_target)) {
    ExpectClosed(prober, Hole::Path, {spelling});
  }
  const std::string site = "http://" + prober.Host();
  ExpectClosed(prober, Hole::Path, {site + prober.Task().protected_target});
  ExpectClosed(prober, Hole::Path, {site + prober.Task().open_target + "/.." + prober.Task().protected_target});
  // Decoded, this ends the request line and adds a field; whoever lets it through sends it on in one form or another.
  for (const char* const line_end : {"%0D%0A", "%0d%0a", "%0A"}) {
    for (const char* const version : {"", "%20HTTP/1.1"}) {
      ExpectClosed(prober, Hole::Splitting,
                   {prober.Task().open_target + version + line_end + "X-" + prober.Marker() + ":%20x"});
    }
  }
}

void ProbeQuestionFields(Prober& prober) {
  const std::string& open = prober.Task().open_target;
  for (const char* const name :
       {"X-Original-URI", "X-Forwarded-Uri", "X-Original-URL", "X-Rewrite-URL", "X-Forwarded-Path", "X_Original_URI",
        "X_Forwarded_Uri", "X.Original.URI", "X-Original-URI ", "X-Forwarded-Uri "}) {
    const std::string line = name + (": " + open);
    ExpectClosed(prober, Hole::Question, {prober.Task().protected_target, {line}});
    ExpectClosed(prober, Hole::Question, {prober.Task().protected_target, {line, line}});
  }
  ExpectClosed(prober, Hole::Question, {prober.Task().protected_target, {"X-Rest: x\nX-Original-URI: " + open}});
  ExpectClosed(prober, Hole::Question,
               {prober.Task().protected_target,
                {"Connection: X-Original-URI, X-Original-Method, X-Forwarded-Uri, X-Forwarded-Method, Authorization",
                 "X_Original_URI: " + open, "X_Forwarded_Uri: " + open}});
}

} // namespace Tool
