#pragma once

#include "directory/Failure.h"

namespace Sync {

/// What the store, or the way to it, answered instead of what was asked for. To whoever asked for a change it is a
/// failure of the system: nothing says that it would be refused later.
class StoreError : public AccessDirectory::Failure {
public:
  enum class Reason {
    Away,      ///< no member answered, or none that has a majority behind it
    Compacted, ///< the revision that was asked for is no longer kept
    Future,    ///< the revision that was asked for is not there yet
    TooLarge,  ///< the store takes no request of this size, or of so many operations
    Overtaken, ///< a condition did not hold: somebody else came first
    Refused    ///< anything else: no permission, a malformed answer
  };

  StoreError(Reason reason, const std::string& message) : Failure(Kind::System, message), m_Reason(reason) {}
  Reason Why() const noexcept { return m_Reason; }

  /// The same of a request that has been sent before, to another member whose answer did not come: it may have been
  /// done there.
  StoreError AfterALostAnswer() const {
    StoreError error(*this);
    error.m_MayBeDone = true;
    return error;
  }
  bool MayBeDone() const noexcept { return m_MayBeDone || m_Reason == Reason::Away; }

private:
  Reason m_Reason;
  bool m_MayBeDone = false;
};

} // namespace Sync
