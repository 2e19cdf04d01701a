#pragma once

#include <vector>

#include "directory/Directory.h"
#include "directory/transfer/FileFindings.h"
#include "directory/transfer/Input.h"

namespace AccessDirectory {

/// Reads a directory file into `directory`, a row an entry: one that is wrong keeps its place, so that a row's number
/// is its number in the file. Everything that is not as it must be (unknown, missing or repeated members, values of
/// another type, malformed base64) goes to `errors`. False when the file is no JSON and could not be read to its end;
/// `errors` then begins with where and why.
bool ReadDirectory(Input& input, Directory& directory, FileFindings& errors);

/// The same, but a user may come without a credential: `without` then gets the number of its row, whose credential is
/// empty.
bool ReadDirectory(Input& input, Directory& directory, FileFindings& errors, std::vector<std::size_t>& without);

} // namespace AccessDirectory
