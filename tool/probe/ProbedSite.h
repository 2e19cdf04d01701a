#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace Tool {

/// One answer of a site.
struct ProbeAnswer {
  unsigned status = 0; ///< 0: nothing that is HTTP
  std::string head;    ///< status line and fields
  std::string body;    ///< at most its first 256 KiB

  bool Holds(const std::string& text) const {
    return head.find(text) != std::string::npos || body.find(text) != std::string::npos;
  }
};

/// A site at which exact bytes are sent, well-formed or not, each time over a connection of its own (HTTP/1.1, TCP or
/// TLS). Not for several threads.
class ProbedSite {
public:
  /// `url`: "http://HOST[:PORT]" or "https://HOST[:PORT]", nothing behind it. `authorities`: a PEM file of the
  /// certification authorities to trust; empty: the system's. `patience`: the longest wait for a step of an exchange.
  /// Throws `Failure`: malformed, an unknown name, an unreadable file.
  ProbedSite(const std::string& url, const std::string& authorities, std::chrono::milliseconds patience);
  ~ProbedSite();
  ProbedSite(const ProbedSite&) = delete;
  ProbedSite& operator=(const ProbedSite&) = delete;

  /// What belongs into the field Host.
  const std::string& Host() const noexcept { return m_Host; }

  /// Sends `bytes` and reads answers, up to `wanted`, until the site closes the connection or stays silent; after the
  /// first answer a short silence is enough. Interim answers are left out, 101 is not. Throws `Failure` when there is
  /// no connection to be had; a connection that breaks just ends the answers.
  std::vector<ProbeAnswer> Send(const std::string& bytes, std::size_t wanted) const;

private:
  struct Way; // addresses and TLS settings

  std::string m_Url;
  std::string m_Host;
  std::chrono::milliseconds m_Patience;
  std::unique_ptr<Way> m_Way;
};

} // namespace Tool
