#pragma once

#include <array>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "PN_PList.h"
#include "directory/file/Database.h"
#include "directory/text/Text.h"

namespace AccessDirectory {

/// What a directory file says about itself.
constexpr const char* FileFormat = "perenna-access";
constexpr unsigned FileVersion = 1;

/// One kind of entry of the directory.
struct Section {
  const char* name;                 ///< its member of a directory file
  const char* noun;                 ///< what to call one entry
  const char* table;                ///< where the database keeps the entries
  std::vector<std::string> columns; ///< in the order of the table
  std::size_t keys;                 ///< how many of the first columns tell entries apart

  /// Whether entries have columns beside their keys, which can change.
  bool HasDetails() const noexcept { return keys < columns.size(); }
  /// Whether the column holds credentials, which are never shown.
  bool IsSecret(std::size_t column) const noexcept;
};

enum SectionNumber : std::size_t { Users, Groups, Memberships, Filters, SectionCount };

// The columns of each section, as numbers.
namespace UserColumn {
enum : std::size_t { Id, Method, Value, Date, Creator, Count };
}
namespace GroupColumn {
enum : std::size_t { Id, Name, Count };
}
namespace MembershipColumn {
enum : std::size_t { Group, User, Count };
}
namespace FilterColumn {
enum : std::size_t { Method, Group, Pattern, Action, Count };
}

/// The sections in the order of a directory file.
extern const std::array<Section, SectionCount> Sections;

/// Rows of texts, packed: a row costs its bytes and eight more a column.
class Rows {
public:
  explicit Rows(std::size_t columns) : m_Columns(columns) {}

  /// Appends a row of as many texts as there are columns. One that is not `sound` only keeps its place.
  void Append(const std::vector<std::string>& texts, bool sound = true);

  std::size_t Count() const noexcept { return m_Sound.size(); }
  bool IsSound(std::size_t row) const { return m_Sound[row]; }
  /// A text; valid until the next `Append`.
  std::string_view At(std::size_t row, std::size_t column) const;
  /// All texts of a row, joined.
  std::string_view Whole(std::size_t row) const;

private:
  std::size_t Begin(std::size_t cell) const { return cell == 0 ? 0 : m_Ends[cell - 1]; }

  std::size_t m_Columns;
  std::string m_Bytes;
  std::vector<std::size_t> m_Ends; // of each cell, row by row, in m_Bytes
  std::vector<bool> m_Sound;
};

/// A whole directory in memory, a `Rows` a section.
using Directory = std::array<Rows, SectionCount>;
Directory EmptyDirectory();

/// How many entries each section has.
using SectionCounts = std::array<std::size_t, SectionCount>;
SectionCounts CountsOf(const Directory& directory);
std::size_t Sum(const SectionCounts& counts);
/// "3 users, 1 group, 4 memberships and 2 filters".
std::string CountsText(const SectionCounts& counts);
/// The counts under the names of the sections.
Json CountsJson(const SectionCounts& counts);

/// Compares one row with another, of the same or of another `Rows`, by the first `columns`: negative, zero, positive.
int Compare(const Rows& left, std::size_t left_row, const Rows& right, std::size_t right_row, std::size_t columns);

/// What is stored as something else than text: refuse it with a `Failure` that names it, or take it as text.
enum class NotText { Refuse, Convert };

/// In which order rows are read: in that of the module's listings, or by their texts, column by column, so that two
/// directories with the same entries read alike.
enum class RowOrder { Stored, Sorted };

/// Hands every stored row of a section to `visit`.
void ForEachRow(Database& database, const Section& section, NotText not_text,
                const std::function<void(const std::vector<std::string>& texts)>& visit,
                RowOrder order = RowOrder::Stored);

} // namespace AccessDirectory
