#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "tool/probe/Hole.h"
#include "tool/probe/ProbedSite.h"

namespace Tool {

/// What an examination of a site is told.
struct ProbeTask {
  std::string user;             ///< empty: requests have no credentials
  std::string authorization;    ///< the value of the field; a secret
  std::string open_target;      ///< that the user may GET
  std::string protected_target; ///< that the user may not
  std::string certificate_pem;  ///< of somebody who may GET the open target; empty: not tried
};

/// One request, as its differences from a plain one.
struct ProbeRequest {
  std::string target;
  std::vector<std::string> lines = {}; ///< of the head, in addition, as they are to be sent
  std::string method = "GET";
  bool with_credentials = true;
  bool closes = true;    ///< asks for the end of the connection
  std::string body = {}; ///< as it is to be sent
};

struct Finding {
  Hole hole = Hole::Path;
  std::string request; ///< line and distinguishing field; no credentials
  std::string seen;    ///< what showed it
};

/// Sends requests of one examination and keeps what they showed.
class Prober {
public:
  /// Makes sure that the open target is open, and the protected one is not. Throws `Failure` where neither can be told;
  /// an open protected target is the first finding.
  Prober(const ProbedSite& site, ProbeTask task);

  /// What belongs into the field Host.
  const std::string& Host() const noexcept { return m_Site.Host(); }
  const ProbeTask& Task() const noexcept { return m_Task; }
  /// A text that stands nowhere but in what this examination sends.
  const std::string& Marker() const noexcept { return m_Marker; }
  /// What GET of the open target answers.
  const ProbeAnswer& Open() const noexcept { return m_Open; }
  /// Whether the protected target is refused to a plain request. Otherwise nothing else is worth trying.
  bool IsGuarded() const noexcept { return m_Holes.empty(); }
  /// Whether the open target always answers the same.
  bool IsSteady() const noexcept { return m_IsSteady; }
  /// Whether that tells whom the application takes the caller for.
  bool ShowsUser() const { return !m_Task.user.empty() && m_Open.Holds(m_Task.user); }

  /// The first answer; status 0 when there is none.
  ProbeAnswer Ask(const ProbeRequest& request);
  /// The answers to requests that are sent one behind the other over one connection.
  std::vector<ProbeAnswer> AskInARow(const std::vector<ProbeRequest>& requests);
  /// Whether the answer can only be an application's: 2xx, and something else than the open target says.
  bool IsThrough(const ProbeAnswer& answer) const;

  void Found(Hole hole, const ProbeRequest& request, const std::string& seen) { Note(m_Holes, hole, request, seen); }
  void Unclear(Hole hole, const ProbeRequest& request, const std::string& why) { Note(m_Unclear, hole, request, why); }
  const std::vector<Finding>& Holes() const noexcept { return m_Holes; }
  const std::vector<Finding>& Unclears() const noexcept { return m_Unclear; }
  std::size_t Requests() const noexcept { return m_Requests; }

private:
  std::string Text(const ProbeRequest& request) const;
  static void Note(std::vector<Finding>& list, Hole hole, const ProbeRequest& request, const std::string& why);

  const ProbedSite& m_Site;
  ProbeTask m_Task;
  std::string m_Marker;
  ProbeAnswer m_Open;
  bool m_IsSteady = false;
  std::vector<Finding> m_Holes;
  std::vector<Finding> m_Unclear;
  std::size_t m_Requests = 0;
};

/// "200": a status as findings quote it.
std::string SeenStatus(const ProbeAnswer& answer);

// The kinds of requests, each in the order in which it reports.
void ProbeCredentials(Prober& prober);
void ProbePaths(Prober& prober);
void ProbeQuestionFields(Prober& prober);
void ProbeApplicationFields(Prober& prober);
void ProbeFraming(Prober& prober);

} // namespace Tool
