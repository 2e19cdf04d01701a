#pragma once

#include <memory>
#include <string>
#include <vector>

#include "directory/text/Text.h"
#include "host/Configuration.h"

namespace Host {

/// Calls this very host over a real connection, to one of its own addresses. One thread uses it; the calls block it.
class SelfClient {
public:
  /// `listening`: the addresses as bound. A Unix-domain socket is preferred, then loopback; where there is only TLS,
  /// nobody but the holder of the configured certificate is talked to.
  SelfClient(const std::vector<std::string>& listening, const Configuration& configuration);
  ~SelfClient();
  SelfClient(const SelfClient&) = delete;
  SelfClient& operator=(const SelfClient&) = delete;

  struct Answer { // NOLINT(bugprone-exception-escape): moving JSON allocates nothing
    unsigned status = 0;
    AccessDirectory::Json body;
  };
  /// One request, with `key` in the field that carries self access keys; `body` is null for none. Throws `Refusal`
  /// (503) when there is no answer.
  Answer Call(const std::string& method, const std::string& path, const AccessDirectory::Json& body,
              const std::string& key);

private:
  class Implementation;
  std::unique_ptr<Implementation> m_Implementation;
};

} // namespace Host
