#pragma once

#include <string>

namespace AccessDirectory {

/// Lets the module create `file`, which must not exist, with its schema. Throws `Failure`.
void CreateSchema(const std::string& file);

} // namespace AccessDirectory
