#pragma once

#include <functional>

#include "LocalAccessManager.h"
#include "directory/Directory.h"
#include "host/administration/Call.h"
#include "host/administration/Change.h"

namespace Host {

using ListOperation = Tarn::Result_t (LocalAccessManager::UserManager::*)(Perenna::PagedResults::ResultState&,
                                                                          Perenna::PListDict&);

/// A page of one of the module's listings, each row as `row_json` words it: credentials stay behind.
AccessDirectory::Json ListThroughModule(Call& call, ListOperation operation, const Paging& paging,
                                        AccessDirectory::Json (*row_json)(const Perenna::PListDict& row));

/// A page of the users or groups that the query's "search" selects, of the users only members of `group` unless it is
/// empty.
AccessDirectory::Json ListSelected(Call& call, AccessDirectory::SectionNumber section, const Paging& paging,
                                   const std::string& group);

/// A column of a row as text, and a list of texts in it.
AccessDirectory::Json ColumnJson(const Perenna::PListDict& row, const std::string& column);
AccessDirectory::Json ListJson(const Perenna::PListDict& row, const std::string& column);

/// 200 with an entity and its tag.
Reply EntityReply(Entity entity);
/// 201; `Location` where a path can carry the id.
Reply CreatedReply(const Call& call, const std::string& collection, const std::string& id, Entity entity);

} // namespace Host
