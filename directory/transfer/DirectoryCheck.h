#pragma once

#include "directory/Directory.h"
#include "directory/Progress.h"
#include "directory/transfer/FileFindings.h"

namespace AccessDirectory {

/// Looks at the contents of a directory that was read from a file. `errors` takes what the database cannot hold: two
/// users, or two groups, of one id. `warnings` takes what it can hold, and an existing directory may well have, but
/// what has no effect or not the one that was meant: ids, credentials and dates in forms that the module does not
/// write, references to nobody, filters that never apply, repeated rows. `notes` takes what comes with time and does no
/// harm: creators who were deleted since.
void CheckDirectory(const Directory& directory, FileFindings& errors, FileFindings& warnings, FileFindings& notes,
                    Progress& progress);

} // namespace AccessDirectory
