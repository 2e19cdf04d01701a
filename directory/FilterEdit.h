#pragma once

#include <string>

#include "directory/StoredDirectory.h"

namespace AccessDirectory {

/// One filter that is thought to be added or deleted, for questions about what that would do.
struct FilterEdit {
  enum class What { Add, Delete };

  What what = What::Add;
  std::string method;
  std::string group;
  std::string pattern;
  std::string action;
};

/// The rows as they would be after the edit; a deletion takes every equal row, as the module's does.
StoredDirectory Edited(StoredDirectory stored, const FilterEdit& edit);

} // namespace AccessDirectory
