#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "directory/text/Text.h"

namespace AccessDirectory {

/// What is wrong or odd in a directory file, each with its path in the file such as "users[3].user_id". Counts all and
/// keeps the first hundred. Paths and messages are safe to print.
class FileFindings {
public:
  static constexpr std::size_t MaximumKept = 100;

  void Add(std::string path, std::string message);
  /// Adds one that must not get lost behind the others.
  void AddFirst(std::string path, std::string message);
  /// Adds all of `others`.
  void Append(const FileFindings& others);

  std::size_t Count() const noexcept { return m_Count; }

  /// An array of {"path", "message"}.
  Json ToJson() const;
  /// A line each, after `prefix`, and how many were not kept.
  void Print(std::ostream& out, const std::string& prefix) const;

private:
  struct Finding {
    std::string path;
    std::string message;
  };

  std::vector<Finding> m_Kept;
  std::size_t m_Count = 0;
};

/// Stored text in a message: quoted, and cut where it gets long.
std::string Excerpt(std::string_view text);

} // namespace AccessDirectory
