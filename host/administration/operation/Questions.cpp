// What may be asked of the directory: check, who, methods, findings; and what was decided lately.

#include "LocalAccessManager.h"
#include "directory/Module.h"
#include "directory/explain/Explanation.h"
#include "directory/explain/WhoMay.h"
#include "directory/lint/FindingsText.h"
#include "directory/lint/Lint.h"
#include "directory/policy/AccessRulesReader.h"
#include "directory/policy/Matrix.h"
#include "directory/text/Vocabulary.h"
#include "host/administration/operation/Operations.h"

namespace Host {

using AccessDirectory::Database;
using AccessDirectory::Json;
using AccessDirectory::JsonText;
using AccessDirectory::Module;

namespace {

constexpr std::chrono::seconds ProofTime{2}; // of a processor, for all filters of the directory together

Json AllowedMethods(Module& module, const std::string& url, const std::string& user_id) {
  Perenna::PListArray methods;
  module.Ask([&](LocalAccessManager::UserManager& manager) {
    return manager.GetOptionsMethods(Perenna::HTTPRequest(Perenna::METH_OPTIONS, url), user_id, methods);
  });
  Json names = Json::array();
  for (const Perenna::PListItem* item : methods) {
    names.push_back(JsonText(dynamic_cast<const Perenna::PListData&>(*item).GetValue()));
  }
  return names;
}

} // namespace

Reply Check(Call& call) {
  const std::string user_id = call.Query("user_id");
  const Perenna::HTTPRequest request(AccessDirectory::KnownMethod(call.Query("method")), call.Query("url"));
  Module module = Module::OfProcess(call.File());
  Database database(call.File(), Database::Access::Read);
  return {200, CheckJson(request, user_id, Explain(module, database, request, user_id))};
}

Reply Who(Call& call) {
  using AccessDirectory::Verdicts;
  const Perenna::HTTPRequest request(AccessDirectory::KnownMethod(call.Query("method")), call.Query("url"));
  const Verdicts wanted = call.Flag("refused") ? Verdicts::Refused : Verdicts::Allowed;
  Database database(call.File(), Database::Access::Read);
  const auto verdicts = WhoMay(database, request, wanted);
  return {200, WhoJson(request, wanted, verdicts, LimitOf(call, verdicts.size()))};
}

Reply Methods(Call& call) {
  const std::string user_id = call.Query("user_id");
  const std::string url = call.Query("url");
  Module module = Module::OfProcess(call.File());
  Json methods = AllowedMethods(module, url, user_id);
  return {200,
          {{"user_id", JsonText(user_id)},
           {"user_exists", module.UserExists(user_id)},
           {"url", JsonText(url)},
           {"methods", std::move(methods)}}};
}

Reply Findings(Call& call) {
  using namespace AccessDirectory; // NOLINT(google-build-using-namespace): all of it is the directory's
  const StoredDirectory stored = [&call] {
    Database database(call.File(), Database::Access::Read); // closed before the work begins: nobody waits for that
    return ReadStoredDirectory(database);
  }();
  const Mender mender(call.File(), {"--config", call.context.configuration.file});
  FilterProofs proofs(stored, call.Targets(), ProofTime);
  Progress progress;
  std::vector<Finding> findings = LintFile(call.File());
  std::vector<Finding> of_rows = Lint(stored, mender, proofs, progress).Run();
  findings.insert(findings.end(), std::make_move_iterator(of_rows.begin()), std::make_move_iterator(of_rows.end()));
  std::string json;
  WriteFindings(stored, findings, proofs, LimitOf(call, findings.size()),
                [&json](const std::string& text) { json += text; });
  return {200, nullptr, std::move(json)};
}

Reply ShowMatrix(Call& call) {
  using namespace AccessDirectory; // NOLINT(google-build-using-namespace): all of it is the directory's
  const std::string by = call.Query("by");
  if (!by.empty() && by != "users" && by != "groups") {
    Refuse(400, "by " + Quoted(by) + ": it is neither \"users\" nor \"groups\"");
  }
  const TargetRules targets = call.Targets();
  Patterns patterns;
  const AccessRules rules = [&] {
    Database database(call.File(), Database::Access::Read); // closed before the work begins: nobody waits for that
    return ReadAccessRules(database, patterns);
  }();
  Solver solver(patterns, targets);
  Progress progress;
  const MatrixSubjects subjects = by == "groups" ? MatrixSubjects::Groups : MatrixSubjects::Users;
  Json json = {{"targets", TargetsJson(targets)}};
  json.update(MakeMatrix(rules, subjects, patterns, solver, progress).ToJson(patterns));
  return {200, std::move(json)};
}

Reply ListDecisions(Call& call) {
  const Paging paging = PagingOf(call);
  const std::string outcome = call.Query("outcome");
  std::size_t total = 0;
  Json results = Json::array();
  for (const std::string& line : call.context.decision_log.Last()) {
    Json decision = Json::parse(line);
    if ((!outcome.empty() && decision["outcome"] != outcome) ||
        (call.query.count("user_id") != 0 && decision["user_id"] != JsonText(call.Query("user_id")))) {
      continue;
    }
    if (total >= paging.skip && results.size() < paging.limit) {
      results.push_back(std::move(decision));
    }
    ++total;
  }
  return {200, paging.Page(total, std::move(results))};
}

Reply Options(Call& call) {
  Module module = Module::OfProcess(call.File());
  const bool path_only = call.context.configuration.target == TargetPart::Path;
  const std::string url(path_only ? std::string(PathOf(call.target)) : call.target);
  std::string allow;
  for (const Json& method : AllowedMethods(module, url, call.caller)) {
    if (method.is_string()) {
      allow += (allow.empty() ? "" : ", ") + method.get<std::string>();
    }
  }
  return {204, nullptr, {}, {{"Allow", allow}}};
}

} // namespace Host
