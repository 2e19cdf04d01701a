#pragma once

#include <string>
#include <vector>

#include "PN_HTTP.h"
#include "directory/file/Database.h"
#include "directory/Module.h"
#include "directory/text/Text.h"

namespace AccessDirectory {

/// What one filter of a user's groups has to say about a request.
struct ExplainedFilter {
  std::string group;
  std::string method;
  std::string pattern;
  std::string action;
  bool names_method = false;
  bool matches = false; ///< the pattern, whatever the method
  /// Whether it is too costly to find out whether the pattern matches: where it may be a Deny, all is refused.
  bool undecided = false;
  std::string part;     ///< the part of the URL that matched
  bool decides = false; ///< the first row that settles the verdict
  bool Applies() const noexcept { return names_method && matches; }
};

/// A verdict with its reasons.
struct Explanation {
  bool allowed = false; ///< the module's own answer
  bool user_exists = false;
  std::vector<std::string> groups;
  std::vector<ExplainedFilter> filters; ///< in the order of decision: what refuses, what grants, the rest

  /// The filter that leaves the verdict open, which is therefore no; null: none does.
  const ExplainedFilter* InDoubt() const noexcept;
  /// One sentence that says why.
  std::string Reason() const;
  Json ToJson() const;
};

/// Asks the module and explains its answer from the stored rows. Both see the same state: when another program changes
/// the directory in between, it starts again. Throws `Failure`, also when rows and answer cannot be reconciled.
Explanation Explain(Module& module, Database& database, const Perenna::HTTPRequest& request,
                    const std::string& user_id);

/// The whole answer to "may this user do that, and why".
Json CheckJson(const Perenna::HTTPRequest& request, const std::string& user_id, const Explanation& explanation);

} // namespace AccessDirectory
