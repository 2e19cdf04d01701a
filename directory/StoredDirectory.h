#pragma once

#include <array>
#include <vector>

#include "directory/Directory.h"

namespace AccessDirectory {

/// The rows of one table as they are stored: what is not text is taken by its bytes.
struct StoredRows {
  explicit StoredRows(std::size_t columns) : texts(columns) {}

  /// Whether a cell is stored as a blob, which SQLite finds equal to no text.
  bool IsBlob(std::size_t row, std::size_t column) const { return ((blobs[row] >> column) & 1U) != 0; }
  std::string Text(std::size_t row, std::size_t column) const { return std::string(texts.At(row, column)); }

  Rows texts;
  std::vector<long long> rowids;
  std::vector<unsigned> blobs; ///< a bit a column, the first column lowest
};

using StoredDirectory = std::array<StoredRows, SectionCount>;

/// Reads the whole directory, as of one moment, in the order of the tables. Throws `Failure`.
StoredDirectory ReadStoredDirectory(Database& database);

} // namespace AccessDirectory
