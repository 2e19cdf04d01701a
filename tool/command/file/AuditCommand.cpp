#include <iostream>
#include <istream>
#include <memory>

#include "directory/transfer/Input.h"
#include "tool/command/Commands.h"
#include "tool/terminal/ProgressBar.h"
#include "tool/terminal/Table.h"

namespace Tool {

namespace {

struct AuditOptions {
  std::string user;
  std::string group;
  std::string by;
  std::string since;
};

std::string Member(const Json& object, const char* name) {
  const auto found = object.is_object() ? object.find(name) : object.end();
  return object.is_object() && found != object.end() ? TextOfJson(*found).value_or("") : std::string();
}

/// Whether a row before or after a change, or what the host says it did, has the value.
bool Concerns(const Json& entry, const char* column, const std::string& value) {
  if (Member(entry.value("done", Json()), column) == value) {
    return true;
  }
  for (const Json& row : entry.value("rows", Json::array())) {
    if (Member(row.value("before", Json()), column) == value || Member(row.value("after", Json()), column) == value) {
      return true;
    }
  }
  return false;
}

/// By whom: a user of the system for the tool, of the directory for the host.
std::string Author(const Json& entry) {
  const std::string user = Member(entry, "user");
  return user.empty() ? Member(entry, "user_id") : user;
}

std::string What(const Json& entry) {
  if (const auto command = entry.find("command"); command != entry.end()) {
    std::string text;
    for (const Json& word : *command) {
      text += (text.empty() ? "" : " ") + Shown(TextOfJson(word).value_or(""), Backslash::Kept);
    }
    return text;
  }
  return Shown(Member(entry, "method") + ' ' + Member(entry, "path"), Backslash::Kept);
}

/// "users -1 +2 ~1": rows removed, added, changed.
std::string Rows(const Json& entry) {
  struct Tally {
    std::size_t removed = 0;
    std::size_t added = 0;
    std::size_t changed = 0;
  };
  std::vector<std::pair<std::string, Tally>> tallies;
  for (const Json& row : entry.value("rows", Json::array())) {
    const std::string table = Member(row, "table");
    auto place = std::find_if(tallies.begin(), tallies.end(), [&](const auto& tally) { return tally.first == table; });
    if (place == tallies.end()) {
      place = tallies.insert(tallies.end(), {table, {}});
    }
    const bool had = row.contains("before") && !row["before"].is_null();
    const bool has = row.contains("after") && !row["after"].is_null();
    ++(had && has ? place->second.changed : has ? place->second.added : place->second.removed);
  }
  std::string text;
  for (const auto& [table, tally] : tallies) {
    text += (text.empty() ? "" : ", ") + Shown(table);
    text += tally.removed > 0 ? " -" + std::to_string(tally.removed) : "";
    text += tally.added > 0 ? " +" + std::to_string(tally.added) : "";
    text += tally.changed > 0 ? " ~" + std::to_string(tally.changed) : "";
  }
  return text.empty() ? "-" : text;
}

ExitStatus ShowAudit(const Context& context, const AuditOptions& options) {
  const std::string file = context.AuditFile();
  if (file.empty()) {
    throw Failure(Failure::Kind::Input,
                  "which audit trail? Give --audit FILE, or --config FILE with Host.Log.Administration");
  }
  ProgressBar progress;
  Input input(file, progress);
  std::istream stream(&input);
  stream.exceptions(std::ios::badbit);
  Json entries = Json::array();
  Table table({"TIME", "WHO", "WHAT", "STATUS", "ROWS"});
  std::size_t unreadable = 0;
  for (std::string line; std::getline(stream, line);) {
    Json entry = Json::parse(line, nullptr, false);
    if (!entry.is_object()) {
      unreadable += line.empty() ? 0 : 1;
      continue;
    }
    if ((!options.user.empty() && !Concerns(entry, "user_id", options.user)) ||
        (!options.group.empty() && !Concerns(entry, "group_id", options.group)) ||
        (!options.by.empty() && Author(entry) != options.by) || Member(entry, "time") < options.since) {
      continue;
    }
    table.Add({Shown(Member(entry, "time")), Shown(Author(entry)), What(entry), entry.value("status", Json()).dump(),
               Rows(entry)});
    entries.push_back(std::move(entry));
  }
  progress.Clear();
  if (context.WantsJson()) {
    PrintJson({{"total", entries.size()}, {"unreadable", unreadable}, {"results", std::move(entries)}});
    return ExitStatus::Done;
  }
  table.Print(std::cout);
  if (unreadable > 0) {
    Warn(Count(unreadable, "line") + " of " + Quoted(file) + " could not be read");
  }
  return ExitStatus::Done;
}

} // namespace

void AddAuditCommands(CLI::App& app, Context& context) {
  CLI::App& group = AddCommandGroup(app, "audit", "Show what was changed, by whom");
  CLI::App& show = AddCommand(
      group, "show",
      "Show the changes that --audit and the host's log of administration have recorded\n"
      "One row a change: when, by whom, the command or request, its status, and the rows removed (-), added (+) and "
      "changed (~). --json gives the rows themselves, before and after.",
      "perenna-access --audit /var/log/perenna-access/audit.log audit show --user alice");
  auto options = std::make_shared<AuditOptions>();
  show.add_option("--user", options->user, "Only what concerned this user")->type_name("USER");
  show.add_option("--group", options->group, "Only what concerned this group")->type_name("GROUP");
  show.add_option("--by", options->by, "Only what this user of the system, or of the directory for the host, changed")
      ->type_name("WHO");
  show.add_option("--since", options->since, "Only from this moment on, such as 2026-01-31 or 2026-01-31T12:00")
      ->type_name("TIME");
  context.OnRun(show, [&context, options] { return ShowAudit(context, *options); });
}

} // namespace Tool
