#pragma once

#include <array>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "directory/replay/Policy.h"
#include "directory/replay/RequestLog.h"
#include "directory/text/Text.h"

namespace AccessDirectory {

/// A verdict with the filter that settled it, as far as it is known.
struct Ruling {
  bool allowed = false;
  bool undecided = false;
  std::optional<GroupFilter> decider;

  Json ToJson() const;
};

/// Logged requests whose verdicts differ in the same way, by the same filters.
struct Flip {
  Ruling before;
  Ruling after;
  std::size_t count = 0;
  LoggedRequest example; ///< the first of them
};

/// What came of the requests of a log.
struct ReplayReport {
  std::size_t lines = 0;
  std::size_t judged = 0;
  std::size_t differing = 0;
  std::array<std::size_t, UnjudgedCount> unjudged{}; ///< by why they were not judged
  std::vector<Flip> flips;                           ///< the most frequent first

  std::size_t Unjudged() const noexcept { return lines - judged; }
  /// {"lines", "judged", "differing", "not_judged": {...}, "flips": [{"count", "before", "after", "example"}]}
  Json ToJson() const;
};

/// The target as decisions see it; nothing for one that the host refuses as malformed, whatever the directory says.
using TargetOf = std::function<std::optional<std::string>(const LoggedRequest& request)>;

// Both throw `Failure` when the log cannot be read. What they keep grows with the number of different flips.

/// Judges the requests of a log anew; `Flip::before` is what the log says.
ReplayReport Replay(RequestSource& log, const TargetOf& target_of, Policy& policy);

/// Judges the requests of a log by two states of a directory; what the log itself says does not count.
ReplayReport Compare(RequestSource& log, const TargetOf& target_of, Policy& before, Policy& after);

} // namespace AccessDirectory
