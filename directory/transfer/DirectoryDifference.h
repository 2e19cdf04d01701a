#pragma once

#include "directory/Directory.h"
#include "directory/text/Text.h"

namespace AccessDirectory {

/// What tells one directory from another: the entries that only one of them has, and those of one id whose other
/// columns differ. Memberships and filters, which may repeat, are matched one by one. The order of rows does not count.
/// Refers to both directories, which must outlive it and stay as they are.
class DirectoryDifference {
public:
  /// What differs in one section, as numbers of rows.
  struct SectionDifference {
    std::vector<std::size_t> added;                           ///< rows of the directory after
    std::vector<std::size_t> removed;                         ///< rows of the directory before
    std::vector<std::pair<std::size_t, std::size_t>> changed; ///< before, after
    std::size_t unchanged = 0;
  };

  DirectoryDifference(const Directory& before, const Directory& after);

  const SectionDifference& Of(std::size_t section) const { return m_Sections.at(section); }
  const Rows& Before(std::size_t section) const { return m_Before.at(section); }
  const Rows& After(std::size_t section) const { return m_After.at(section); }

  /// {"users": {"added": [...], "removed": [...], "changed": [{..., "changes": {...}}], "unchanged": NUMBER}, ...},
  /// entries without their credentials.
  Json ToJson() const;

private:
  Json SectionJson(std::size_t number) const;

  const Directory& m_Before;
  const Directory& m_After;
  std::array<SectionDifference, SectionCount> m_Sections;
};

} // namespace AccessDirectory
