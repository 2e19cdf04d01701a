// /access/filters.

#include "LocalAccessManager.h"
#include "directory/Module.h"
#include "directory/member/Creation.h"
#include "directory/member/Membership.h"
#include "directory/text/Vocabulary.h"
#include "host/administration/Change.h"
#include "host/administration/operation/ModuleListing.h"
#include "host/administration/operation/Operations.h"

namespace Host {

using AccessDirectory::Database;
using AccessDirectory::Json;
using AccessDirectory::JsonText;
using AccessDirectory::Quoted;

namespace {

namespace Keys = LocalAccessManager::Strings;

struct FilterRow {
  std::string method;
  std::string group_id;
  std::string filter;
  std::string action;

  Json ToJson() const {
    return {{"method", JsonText(method)},
            {"group_id", JsonText(group_id)},
            {"filter", JsonText(filter)},
            {"action", JsonText(action)}};
  }
  Perenna::PListDict ToRequest() const {
    Perenna::PListDict request;
    request.SetValue(Keys::method, method);
    request.SetValue(Keys::group_id, group_id);
    request.SetValue(Keys::filter, filter);
    request.SetValue(Keys::action, action);
    return request;
  }
  long long CountStored(Database& database) const {
    return database.Number(
        "SELECT count(*) FROM filters WHERE method = ? AND group_id = ? AND filter = ? AND action = ?",
        {method, group_id, filter, action});
  }
};

/// What keeps a filter from ever applying, and one that is there already.
void RequireEffect(Database& database, const FilterRow& row) {
  AccessDirectory::KnownMethod(row.method);
  if (row.action != AccessDirectory::Allow && row.action != AccessDirectory::Deny) {
    Refuse(400, "the action " + Quoted(row.action) + " is neither \"Allow\" nor \"Deny\"");
  }
  std::string fault;
  AccessDirectory::CompilePattern(row.filter, fault);
  if (!fault.empty()) {
    Refuse(400, "the pattern " + Quoted(row.filter) + " is " + fault);
  }
  if (!AccessDirectory::GroupExists(database, row.group_id)) {
    Refuse(400, "there is no group " + Quoted(row.group_id));
  }
  if (row.CountStored(database) != 0) {
    Refuse(409, "there is such a filter already");
  }
}

Json FilterJson(const Perenna::PListDict& row) {
  return FilterRow{row.GetData(Keys::method).GetValue(), row.GetData(Keys::group_id).GetValue(),
                   row.GetData(Keys::filter).GetValue(), row.GetData(Keys::action).GetValue()}
      .ToJson();
}

} // namespace

Reply ListFilters(Call& call) {
  const Paging paging = PagingOf(call);
  if (call.query.count("group") == 0) {
    return {200, ListThroughModule(call, &LocalAccessManager::UserManager::GetFilters, paging, FilterJson)};
  }
  const std::string group = call.Query("group");
  Database database(call.File(), Database::Access::Read);
  const AccessDirectory::Snapshot snapshot(database);
  const auto total = database.Number("SELECT count(*) FROM filters WHERE group_id = ?", {group});
  Json results = Json::array();
  AccessDirectory::Statement(database,
                             "SELECT CAST(method AS TEXT) AS method, group_id, CAST(filter AS TEXT) AS filter, "
                             "CAST(action AS TEXT) AS action FROM filters WHERE group_id = ? ORDER BY rowid "
                             "LIMIT CAST(? AS INTEGER) OFFSET CAST(? AS INTEGER)")
      .ForEach({group, std::to_string(paging.limit), std::to_string(paging.skip)},
               [&results](const Perenna::PListDict& row) { results.push_back(FilterJson(row)); });
  return {200, paging.Page(static_cast<std::size_t>(total), std::move(results))};
}

Reply CreateFilter(Call& call) {
  const FilterRow row = {*call.Text("method"), *call.Text("group_id"), *call.Text("filter"), *call.Text("action")};
  call.done = {{"operation", "create filter"}};
  call.done.update(row.ToJson());
  if (!call.Flag("unchecked")) {
    Database database(call.File(), Database::Access::Read);
    RequireEffect(database, row);
  }
  if (!call.context.writer.ModuleMayWrite()) {
    Change change(call);
    AccessDirectory::CreateFilter(change.TheDatabase(), row.method, row.group_id, row.filter, row.action);
    change.Commit();
    return {201, row.ToJson()};
  }
  AccessDirectory::Module::OfProcess(call.File()).Apply([&row](LocalAccessManager::UserManager& manager) {
    return manager.CreateFilter(row.ToRequest());
  });
  return {201, row.ToJson()};
}

Reply DeleteFilter(Call& call) {
  const FilterRow row = {call.Query("method"), call.Query("group_id"), call.Query("filter"), call.Query("action")};
  call.done = {{"operation", "delete filter"}};
  call.done.update(row.ToJson());
  {
    Database database(call.File(), Database::Access::Read);
    if (row.CountStored(database) == 0) {
      Refuse(404, "there is no such filter");
    }
  }
  if (!call.context.writer.ModuleMayWrite()) {
    Change change(call);
    AccessDirectory::DeleteFilter(change.TheDatabase(), row.method, row.group_id, row.filter, row.action);
    change.Commit();
    return {204};
  }
  AccessDirectory::Module::OfProcess(call.File()).Apply([&row](LocalAccessManager::UserManager& manager) {
    return manager.DeleteFilter(row.ToRequest());
  });
  return {204};
}

} // namespace Host
