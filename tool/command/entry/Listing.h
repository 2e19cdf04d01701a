#pragma once

#include <functional>
#include <string>
#include <vector>

#include "LocalAccessManager.h"
#include "directory/member/MemberListing.h"
#include "directory/Module.h"
#include "tool/cli/Context.h"
#include "tool/DirectoryNames.h"
#include "tool/terminal/Table.h"

namespace Tool {

/// Forms of a listing for other programs beside --json.
struct ListOptions {
  bool csv = false;   ///< RFC 4180, with a first line of names; lists joined by ";"
  bool jsonl = false; ///< each result on a line of its own

  /// Whether the entries are to be written in one of them.
  bool IsGiven() const noexcept { return csv || jsonl; }
};
void AddListOptions(CLI::App& command, ListOptions& options);

/// A value of CSV (RFC 4180), quoted where it must be.
std::string CsvField(const std::string& text);

/// Writes the entries, objects of one shape, in the form that was asked for. A text that is not UTF-8 stands in CSV as
/// its bytes.
void PrintEntries(const ListOptions& options, const Json& entries, const std::vector<std::string>& names);

using ListOperation = Tarn::Result_t (LocalAccessManager::UserManager::*)(Perenna::PagedResults::ResultState&,
                                                                          Perenna::PListDict&);

/// One page of a listing of the module.
struct Page {
  int skip = 0;
  int limit = 0;
  int total = 0;
  std::vector<const Perenna::PListDict*> rows; // owned by `document`
  Perenna::PListDict document;

  /// {"skip", "limit", "total", "results"}, `row_json` giving each entry; the limit is at most the total.
  Json ToJson(const std::function<Json(const Perenna::PListDict&)>& row_json) const;
  /// Under a table that does not show everything: "2 of 10 users". Else nothing.
  void PrintRemainder(const std::string& noun) const;
};

/// Asks the module for a page. With `keep`, only the entries that it accepts exist. Throws `Failure`.
Page List(Module& module, ListOperation operation, const PageOptions& page,
          const std::function<bool(const Perenna::PListDict&)>& keep = nullptr);

/// A page of the users with their groups, or of the groups with their users, as `row_json` and `row_cells` word each
/// row. On a terminal, how far it is when it takes long, and a hint to "tune" when the file is large and was not.
struct MemberPage {
  SectionNumber section;
  PageOptions page;
  Selection selection;
  std::vector<std::string> headings;
  std::function<Json(const MemberListing&, std::size_t row)> row_json;
  std::function<std::vector<Cell>(const MemberListing&, std::size_t row)> row_cells;
};
ExitStatus PrintMembers(const Context& context, const ListOptions& form, const MemberPage& shape);

/// The texts as a JSON array.
Json JsonTexts(const std::vector<std::string>& texts);

/// The texts joined by ", ", shown safely; "-" for none.
std::string Joined(const std::vector<std::string>& texts);

} // namespace Tool
