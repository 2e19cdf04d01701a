#include "host/administration/operation/ModuleListing.h"

#include "directory/Failure.h"
#include "directory/Module.h"
#include "directory/member/MemberListing.h"

namespace Host {

using AccessDirectory::Json;
using AccessDirectory::JsonText;

Json ListThroughModule(Call& call, ListOperation operation, const Paging& paging,
                       Json (*row_json)(const Perenna::PListDict& row)) {
  AccessDirectory::Module module = AccessDirectory::Module::OfProcess(call.File());
  Perenna::PagedResults::ResultState state;
  state.Skip = static_cast<std::int32_t>(paging.skip);
  state.Limit = static_cast<std::int32_t>(paging.limit);
  Perenna::PListDict document;
  module.Apply([&](LocalAccessManager::UserManager& manager) { return (manager.*operation)(state, document); });
  Perenna::PListArray* rows = nullptr;
  int total = 0;
  if (!document.GetArray(Perenna::PagedResults::results, rows) ||
      !document.GetData(Perenna::PagedResults::total).GetValue(total)) {
    throw AccessDirectory::Failure(AccessDirectory::Failure::Kind::System, "the database could not be read");
  }
  Json results = Json::array();
  for (const Perenna::PListItem* item : *rows) {
    results.push_back(row_json(dynamic_cast<const Perenna::PListDict&>(*item)));
  }
  return paging.Page(static_cast<std::size_t>(total), std::move(results));
}

Json ListSelected(Call& call, AccessDirectory::SectionNumber section, const Paging& paging, const std::string& group) {
  using namespace AccessDirectory; // NOLINT(google-build-using-namespace): names of columns
  Database database(call.File(), Database::Access::Read);
  Progress progress;
  const MemberListing listing =
      ListWithMembers(database, section, paging.skip, paging.limit, progress, {call.Query("search"), group});
  Json results = Json::array();
  for (std::size_t row = 0; row < listing.rows.Count(); ++row) {
    Json entry = Json::object();
    const Section& columns = Sections.at(section);
    for (std::size_t column = 0; column < columns.columns.size(); ++column) {
      if (!columns.IsSecret(column)) {
        entry[columns.columns[column]] = JsonText(std::string(listing.rows.At(row, column)));
      }
    }
    Json members = Json::array();
    for (const std::string& member : listing.members[row]) {
      members.push_back(JsonText(member));
    }
    entry[section == Users ? "groups" : "users"] = std::move(members);
    results.push_back(std::move(entry));
  }
  return paging.Page(listing.total, std::move(results));
}

Json ColumnJson(const Perenna::PListDict& row, const std::string& column) {
  return JsonText(row.GetData(column).GetValue());
}

Json ListJson(const Perenna::PListDict& row, const std::string& column) {
  Json list = Json::array();
  Perenna::PListArray* items = nullptr;
  if (row.GetArray(column, items)) {
    for (const Perenna::PListItem* item : *items) {
      list.push_back(JsonText(dynamic_cast<const Perenna::PListData&>(*item).GetValue()));
    }
  }
  return list;
}

Reply EntityReply(Entity entity) {
  return {200, std::move(entity.json), {}, {{"ETag", std::move(entity.etag)}}};
}

Reply CreatedReply(const Call& call, const std::string& collection, const std::string& id, Entity entity) {
  Reply reply = EntityReply(std::move(entity));
  reply.status = 201;
  const std::string location = PathOfEntry(call.context.target_form, collection, id);
  if (!location.empty()) {
    reply.fields.push_back({"Location", location});
  }
  return reply;
}

} // namespace Host
