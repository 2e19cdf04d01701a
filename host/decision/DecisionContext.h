#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "PN_Regex.h"
#include "TN_util.h"
#include "host/Configuration.h"
#include "host/caller/SelfCalls.h"
#include "host/decision/watch/DirectoryFile.h"
#include "host/decision/watch/Freshness.h"
#include "host/decision/memory/Throttle.h"

namespace Host {

/// What the judges of all threads share. Immutable, or locked by its members.
struct DecisionContext {
  /// Milliseconds of a clock that does not go backwards.
  using Clock = std::function<std::int64_t()>;

  /// `on_gone` is called once, on any thread, when the file was replaced or removed: the process has to end with status
  /// 3. `judges`: among how many the cached decisions are shared out. Throws `AccessDirectory::Failure` when there is
  /// no such file.
  DecisionContext(const Configuration& configuration, unsigned judges, std::function<void()> on_gone);

  /// Whether anybody may ask for the path of `target` without credentials: `PathFilterBypass` matches it, and it is not
  /// a path that the host itself protects.
  bool Bypasses(const std::string& target) const;

  std::string anonymous_user_id;
  TargetPart target_part;
  std::size_t cached_decisions_each;
  DirectoryFile file;
  Freshness freshness;
  Throttle throttle;
  SelfCalls self_calls;
  Tarn::SymmetricKey key; ///< of digests, random
  Clock clock;
  CertificateForm certificate_form;

private:
  std::unique_ptr<Perenna::RegularExpression> m_Bypass;
};

} // namespace Host
