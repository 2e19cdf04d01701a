#include "tool/command/entry/Listing.h"

#include <algorithm>
#include <iostream>

#include <unistd.h>

#include "directory/file/Tune.h"
#include "directory/member/Membership.h"
#include "tool/terminal/Output.h"
#include "tool/terminal/ProgressBar.h"

namespace Tool {

namespace {

constexpr std::size_t ManyMemberships = 10000; // that a decision reads in about a millisecond

} // namespace

Json Page::ToJson(const std::function<Json(const Perenna::PListDict&)>& row_json) const {
  Json results = Json::array();
  for (const Perenna::PListDict* row : rows) {
    results.push_back(row_json(*row));
  }
  return {{"skip", skip}, {"limit", std::min(total, limit)}, {"total", total}, {"results", std::move(results)}};
}

void Page::PrintRemainder(const std::string& noun) const {
  if (rows.size() != static_cast<std::size_t>(total)) {
    std::cout << rows.size() << " of " << Count(static_cast<std::size_t>(total), noun) << '\n';
  }
}

Page List(Module& module, ListOperation operation, const PageOptions& page,
          const std::function<bool(const Perenna::PListDict&)>& keep) {
  Page result;
  Perenna::PagedResults::ResultState state(Perenna::PagedResults::RS_MAXROWS);
  if (!keep) {
    state.Skip = page.skip;
    state.Limit = page.limit;
  }
  module.Apply([&](LocalAccessManager::UserManager& manager) { return (manager.*operation)(state, result.document); });
  Perenna::PListArray* entries = nullptr;
  if (!result.document.GetArray(Perenna::PagedResults::results, entries)) {
    throw Failure(Failure::Kind::System, "the database could not be read");
  }
  for (const Perenna::PListItem* entry : *entries) {
    const auto* const row = dynamic_cast<const Perenna::PListDict*>(entry);
    if (row != nullptr && (!keep || keep(*row))) {
      result.rows.push_back(row);
    }
  }
  result.skip = page.skip;
  result.limit = page.limit;
  result.document.GetData(Perenna::PagedResults::total).GetValue(result.total);
  if (keep) {
    const auto kept = static_cast<std::ptrdiff_t>(result.rows.size());
    const auto first = std::min<std::ptrdiff_t>(page.skip, kept);
    const auto last = first + std::min<std::ptrdiff_t>(page.limit, kept - first);
    result.total = static_cast<int>(kept);
    result.rows = {result.rows.begin() + first, result.rows.begin() + last};
  }
  return result;
}

void AddListOptions(CLI::App& command, ListOptions& options) {
  CLI::Option* const csv =
      command.add_flag("--csv", options.csv, "Print comma-separated values (RFC 4180), the names first");
  command.add_flag("--jsonl", options.jsonl, "Print each entry as JSON on a line of its own")->excludes(csv);
}

namespace {

std::string BytesOf(const Json& value) {
  if (value.is_array()) {
    std::string joined;
    for (const Json& part : value) {
      joined += (joined.empty() ? "" : ";") + BytesOf(part);
    }
    return joined;
  }
  return TextOfJson(value).value_or("");
}

} // namespace

std::string CsvField(const std::string& text) {
  if (text.find_first_of(",\"\r\n") == std::string::npos) {
    return text;
  }
  std::string quoted = "\"";
  for (const char byte : text) {
    quoted += byte == '"' ? "\"\"" : std::string(1, byte);
  }
  return quoted + '"';
}

void PrintEntries(const ListOptions& options, const Json& entries, const std::vector<std::string>& names) {
  Output out;
  if (options.csv) {
    out.Write(CLI::detail::join(names, ",") + "\r\n");
  }
  for (const Json& entry : entries) {
    if (options.jsonl) {
      out.Write(entry.dump(-1, ' ', true) + '\n');
      continue;
    }
    std::string line;
    for (const std::string& name : names) {
      line += (name == names.front() ? "" : ",") + CsvField(BytesOf(entry.at(name)));
    }
    out.Write(line + "\r\n");
  }
  out.Finish();
}

ExitStatus PrintMembers(const Context& context, const ListOptions& form, const MemberPage& shape) {
  const PageOptions& page = shape.page;
  Database database(context.DatabaseFile(), Database::Access::Read);
  MemberListing listing;
  {
    ProgressBar progress;
    listing = ListWithMembers(database, shape.section, static_cast<std::size_t>(page.skip),
                              static_cast<std::size_t>(page.limit), progress, shape.selection);
  }
  if (listing.total == 0 && !shape.selection.member_of.empty() && !GroupExists(database, shape.selection.member_of)) {
    throw Failure(Failure::Kind::Refused, "there is no group " + Quoted(shape.selection.member_of));
  }
  Json results = Json::array();
  for (std::size_t row = 0; (context.WantsJson() || form.IsGiven()) && row < listing.rows.Count(); ++row) {
    results.push_back(shape.row_json(listing, row));
  }
  if (form.IsGiven()) {
    PrintEntries(form, results,
                 shape.section == Users
                     ? std::vector<std::string>{"user_id", "auth_method", "create_date", "create_user", "groups"}
                     : std::vector<std::string>{"group_id", "group_name", "users"});
  } else if (context.WantsJson()) {
    PrintJson({{"skip", page.skip},
               {"limit", std::min(listing.total, static_cast<std::size_t>(page.limit))},
               {"total", listing.total},
               {"results", std::move(results)}});
  } else {
    Table table(shape.headings);
    for (std::size_t row = 0; row < listing.rows.Count(); ++row) {
      table.Add(shape.row_cells(listing, row));
    }
    table.Print(std::cout);
    if (listing.rows.Count() != listing.total) {
      std::cout << listing.rows.Count() << " of " << Count(listing.total, Sections.at(shape.section).noun) << '\n';
    }
  }
  if (listing.memberships > ManyMemberships && isatty(STDERR_FILENO) == 1 && !IsTuned(database)) {
    std::cout.flush();
    std::cerr << "perenna-access: a decision reads all " << listing.memberships
              << " memberships of this file; after \"tune\" only those of the user\n";
  }
  return ExitStatus::Done;
}

Json JsonTexts(const std::vector<std::string>& texts) {
  Json array = Json::array();
  for (const std::string& text : texts) {
    array.push_back(JsonText(text));
  }
  return array;
}

std::string Joined(const std::vector<std::string>& texts) {
  std::string joined;
  for (const std::string& text : texts) {
    joined += (joined.empty() ? "" : ", ") + Shown(text);
  }
  return joined.empty() ? "-" : joined;
}

} // namespace Tool
