#include "tool/probe/Prober.h"

#include <array>
#include <utility>

#include <openssl/rand.h>

#include "directory/Failure.h"
#include "directory/text/Text.h"
#include "tool/DirectoryNames.h"

namespace Tool {

namespace {

std::string NewMarker() {
  std::array<unsigned char, 8> bytes{};
  if (RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) != 1) {
    throw Failure(Failure::Kind::System, "there are no random numbers to be had");
  }
  std::string marker = "perennacheck";
  for (const unsigned char byte : bytes) {
    marker += static_cast<char>('a' + byte % 26);
  }
  return marker;
}

} // namespace

std::string SeenStatus(const ProbeAnswer& answer) {
  return answer.status == 0 ? "no HTTP" : std::to_string(answer.status);
}

Prober::Prober(const ProbedSite& site, ProbeTask task) : m_Site(site), m_Task(std::move(task)), m_Marker(NewMarker()) {
  const std::string who = m_Task.user.empty() ? "without credentials" : "as " + Quoted(m_Task.user);
  m_Open = Ask({m_Task.open_target});
  if (m_Open.status < 200 || m_Open.status > 299) {
    throw Failure(Failure::Kind::Input, "GET " + Quoted(m_Task.open_target) + ' ' + who + " is answered " +
                                            SeenStatus(m_Open) + ": --open has to name what is answered 2xx");
  }
  m_IsSteady = Ask({m_Task.open_target}).body == m_Open.body;
  const ProbeRequest wanted{m_Task.protected_target};
  const ProbeAnswer refused = Ask(wanted);
  if (refused.status >= 200 && refused.status <= 299) {
    Found(Hole::Unasked, wanted, SeenStatus(refused) + ", as plainly as that");
  } else if (refused.status != 401 && refused.status != 403) {
    throw Failure(Failure::Kind::Input, "GET " + Quoted(m_Task.protected_target) + ' ' + who + " is answered " +
                                            SeenStatus(refused) +
                                            ": --protected has to name what is refused, 401 or 403");
  }
}

ProbeAnswer Prober::Ask(const ProbeRequest& request) {
  std::vector<ProbeAnswer> answers = AskInARow({request});
  return answers.empty() ? ProbeAnswer() : std::move(answers.front());
}

std::vector<ProbeAnswer> Prober::AskInARow(const std::vector<ProbeRequest>& requests) {
  std::string bytes;
  for (const ProbeRequest& request : requests) {
    bytes += Text(request);
  }
  m_Requests += requests.size();
  return m_Site.Send(bytes, requests.size());
}

std::string Prober::Text(const ProbeRequest& request) const {
  std::string text = request.method + ' ' + request.target + " HTTP/1.1\r\nHost: " + m_Site.Host() + "\r\n";
  if (request.with_credentials && !m_Task.authorization.empty()) {
    text += "Authorization: " + m_Task.authorization + "\r\n";
  }
  for (const std::string& line : request.lines) {
    text += line + "\r\n";
  }
  return text + (request.closes ? "Connection: close\r\n\r\n" : "\r\n") + request.body;
}

bool Prober::IsThrough(const ProbeAnswer& answer) const {
  return answer.status >= 200 && answer.status <= 299 && answer.body != m_Open.body;
}

void Prober::Note(std::vector<Finding>& list, Hole hole, const ProbeRequest& request, const std::string& why) {
  std::string shown = request.method + ' ' + request.target;
  for (const std::string& line : request.lines) {
    shown += ", " + (line.rfind("Authorization:", 0) == 0 ? "Authorization" : line);
  }
  list.push_back({hole, shown, why});
}

} // namespace Tool
