// /access/what-if: what adding or deleting a filter would do, before it is done.

#include "directory/FilterEdit.h"
#include "directory/policy/AccessChange.h"
#include "directory/replay/Replay.h"
#include "directory/text/Vocabulary.h"
#include "host/administration/operation/Operations.h"
#include "host/decision/LoggedTarget.h"

namespace Host {

using AccessDirectory::Database;
using AccessDirectory::FilterEdit;
using AccessDirectory::Json;
using AccessDirectory::Quoted;

namespace {

FilterEdit EditOf(const Call& call) {
  const std::string change = call.Query("change");
  if (change != "add" && change != "delete") {
    Refuse(400, "the change " + Quoted(change) + " is neither \"add\" nor \"delete\"");
  }
  FilterEdit edit = {change == "add" ? FilterEdit::What::Add : FilterEdit::What::Delete, call.Query("method"),
                     call.Query("group_id"), call.Query("filter"), call.Query("action")};
  if (edit.what == FilterEdit::What::Add) { // one that is there may be odd, and deleted for that
    AccessDirectory::KnownMethod(edit.method);
    if (edit.action != AccessDirectory::Allow && edit.action != AccessDirectory::Deny) {
      Refuse(400, "the action " + Quoted(edit.action) + " is neither \"Allow\" nor \"Deny\"");
    }
    std::string fault;
    AccessDirectory::CompilePattern(edit.pattern, fault);
    if (!fault.empty()) {
      Refuse(400, "the pattern " + Quoted(edit.pattern) + " is " + fault);
    }
  }
  return edit;
}

/// The last decisions, judged by the directory as it is and as it would be.
Json Replayed(const Call& call, const FilterEdit& edit) {
  const Configuration& configuration = call.context.configuration;
  Database database(call.File(), Database::Access::Read);
  const AccessDirectory::Snapshot snapshot(database);
  AccessDirectory::Policy before(snapshot, database, nullptr);
  AccessDirectory::Policy after(snapshot, database, &edit);
  AccessDirectory::RequestLines decisions(call.context.decision_log.Last());
  return Compare(decisions, LoggedTargets(configuration.target, configuration.target_allows), before, after).ToJson();
}

/// What changes for whom, on all targets.
Json Proven(const Call& call, const FilterEdit& edit) {
  using namespace AccessDirectory; // NOLINT(google-build-using-namespace): all of it is the directory's
  StoredDirectory stored = [&call] {
    Database database(call.File(), Database::Access::Read); // closed before the work begins: nobody waits for that
    return ReadStoredDirectory(database);
  }();
  const AccessDirectory::TargetRules rules = call.Targets();
  Patterns patterns;
  const AccessRules before(stored, patterns);
  const AccessRules after(Edited(std::move(stored), edit), patterns);
  Solver solver(patterns, rules);
  Progress progress;
  return CompareAccess(before, after, patterns, solver, progress).ToJson();
}

} // namespace

Reply WhatIf(Call& call) {
  const FilterEdit edit = EditOf(call);
  return {200, {{"decisions", Replayed(call, edit)}, {"targets", Proven(call, edit)}}};
}

} // namespace Host
