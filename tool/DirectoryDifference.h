#pragma once

#include <ostream>

#include "Directory.h"
#include "Text.h"

namespace Tool {

/// What tells one directory from another: the entries that only one of them has, and those of one id whose other
/// columns differ. Memberships and filters, which may repeat, are matched one by one. The order of rows does not count.
/// Refers to both directories, which must outlive it and stay as they are.
class DirectoryDifference {
public:
  DirectoryDifference(const Directory& before, const Directory& after);

  /// Tables for people, a section each that differs. A credential is never shown, only that it changed.
  void Print(std::ostream& out) const;

  /// {"users": {"added": [...], "removed": [...], "changed": [{..., "changes": {...}}], "unchanged": NUMBER}, ...},
  /// entries without their credentials.
  Json ToJson() const;

private:
  struct SectionDifference {
    std::vector<std::size_t> added;                           // rows of the directory after
    std::vector<std::size_t> removed;                         // rows of the directory before
    std::vector<std::pair<std::size_t, std::size_t>> changed; // before, after
    std::size_t unchanged = 0;
  };

  void PrintSection(std::ostream& out, std::size_t number) const;
  Json SectionJson(std::size_t number) const;

  const Directory& m_Before;
  const Directory& m_After;
  std::array<SectionDifference, SectionCount> m_Sections;
};

} // namespace Tool
