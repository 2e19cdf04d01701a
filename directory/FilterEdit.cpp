#include "directory/FilterEdit.h"

#include <utility>
#include <vector>

namespace AccessDirectory {

StoredDirectory Edited(StoredDirectory stored, const FilterEdit& edit) {
  const StoredRows before = std::exchange(stored[Filters], StoredRows(FilterColumn::Count));
  StoredRows& after = stored[Filters];
  const std::vector<std::string> edited = {edit.method, edit.group, edit.pattern, edit.action};
  const auto append = [&after](const std::vector<std::string>& texts, long long rowid, unsigned blobs) {
    after.texts.Append(texts);
    after.rowids.push_back(rowid);
    after.blobs.push_back(blobs);
  };
  for (std::size_t row = 0; row < before.texts.Count(); ++row) {
    std::vector<std::string> texts;
    for (std::size_t column = 0; column < FilterColumn::Count; ++column) {
      texts.push_back(before.Text(row, column));
    }
    const bool goes = edit.what == FilterEdit::What::Delete && before.blobs[row] == 0 && texts == edited;
    if (!goes) {
      append(texts, before.rowids[row], before.blobs[row]);
    }
  }
  if (edit.what == FilterEdit::What::Add) {
    append(edited, before.rowids.empty() ? 1 : before.rowids.back() + 1, 0);
  }
  return stored;
}

} // namespace AccessDirectory
