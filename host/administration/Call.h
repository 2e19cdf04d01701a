#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "directory/change/ChangeWriter.h"
#include "directory/pattern/Targets.h"
#include "directory/text/Text.h"
#include "host/Configuration.h"
#include "host/Metrics.h"
#include "host/administration/Problem.h"
#include "host/decision/DecisionContext.h"
#include "host/decision/Judge.h"
#include "host/http/Target.h"
#include "host/log/DecisionLog.h"

namespace Host {

/// What the administration of a host works with; outlives it.
struct AdministrationContext {
  const Configuration& configuration;
  const TargetForm& target_form;
  DecisionContext& decisions;
  DecisionLog& decision_log;
  LogFile& log;
  AccessDirectory::ChangeWriter& writer;
  std::function<std::vector<std::string>()> listening; ///< the addresses as bound
};

/// One request of somebody who may make it, checked against its route.
struct Call {
  AdministrationContext& context;
  Judge& judge;       ///< the thread's own, for questions
  std::string caller; ///< the user's id
  std::string address;
  std::string request_id;
  std::string target;                            ///< of an OPTIONS request
  std::map<std::string, std::string> path;       ///< by the names in the route
  std::map<std::string, std::string> query = {}; ///< decoded; of those that were given
  AccessDirectory::Json body = nullptr;
  std::string text = {}; ///< the body as it came, for `BodyForm::Directory`
  std::optional<std::string> if_match = {};

  /// What was done to what, for the log; without credentials.
  AccessDirectory::Json done = AccessDirectory::Json::object();

  const std::string& File() const noexcept { return context.configuration.database_filename; }
  /// The targets that statements about all of them are about.
  AccessDirectory::TargetRules Targets() const;
  /// Whether the query says NAME=true.
  bool Flag(const std::string& name) const;
  /// A parameter of the query; empty when it was not given.
  std::string Query(const std::string& name) const;
  /// A text member of the body; nothing when it was not given.
  std::optional<std::string> Text(const std::string& name) const;
};

/// An answer that is no problem.
struct Reply { // NOLINT(bugprone-exception-escape): moving JSON allocates nothing
  unsigned status = 200;
  AccessDirectory::Json body = nullptr; ///< null: none, or `text`
  std::string text = {};                ///< JSON that was put together already
  std::vector<Field> fields = {};
};

/// Which part of a list: "skip" and "limit" of the query.
struct Paging {
  std::size_t skip = 0;
  std::size_t limit = 100;

  /// {"skip", "limit", "total", "results"}; the limit is at most the total.
  AccessDirectory::Json Page(std::size_t total, AccessDirectory::Json results) const;
};
Paging PagingOf(const Call& call);
/// "limit" alone, where there is nothing to pass over.
std::size_t LimitOf(const Call& call, std::size_t fallback);

/// The path of what a new entry is known by, "/access/users/ID"; empty when the normal form of paths cannot carry it.
std::string PathOfEntry(const TargetForm& form, const std::string& collection, const std::string& id);

} // namespace Host
