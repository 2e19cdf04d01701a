#pragma once

#include <string>
#include <vector>

#include "directory/Directory.h"
#include "directory/Progress.h"

namespace AccessDirectory {

/// A page of the users with their groups, or of the groups with their users, in the module's order.
struct MemberListing {
  std::size_t total = 0;                         ///< users or groups that there are
  std::size_t memberships = 0;                   ///< that were read for it
  Rows rows = Rows(0);                           ///< in the columns of the section; the credentials are empty
  std::vector<std::vector<std::string>> members; ///< of each row, ascending
};

/// Which entries of a listing are wanted.
struct Selection {
  std::string search;    ///< those whose id, or group name, holds this, letters of ASCII in any case; empty: all
  std::string member_of; ///< of users, those in this group; empty: all
};

/// Reads the page of `section`, Users or Groups, as of one moment. One pass over the memberships serves all of its
/// rows, where the module asks for those of each row: on a file without indexes that takes quadratic time. Throws
/// `Failure`.
MemberListing ListWithMembers(Database& database, SectionNumber section, std::size_t skip, std::size_t limit,
                              Progress& progress, const Selection& selection = {});

} // namespace AccessDirectory
