#include "tool/command/Commands.h"

#include <iostream>
#include <memory>

#include "directory/explain/EffectiveFilters.h"
#include "directory/explain/WhoMay.h"
#include "directory/member/Membership.h"
#include "directory/text/Vocabulary.h"
#include "tool/command/entry/Listing.h"
#include "tool/DirectoryNames.h"
#include "tool/terminal/Table.h"

namespace Tool {

namespace {

struct WhoOptions {
  std::string method;
  std::string target;
  bool refused = false;
};

void PrintVerdicts(const std::vector<UserVerdict>& verdicts, Verdicts wanted) {
  const bool allowed = wanted == Verdicts::Allowed;
  Table table(allowed ? std::vector<std::string>{"USER", "ALLOWED BY", "PATTERN"}
                      : std::vector<std::string>{"USER", "REFUSED BY", "PATTERN", "ELSE ALLOWED BY"});
  const auto by = [](const GroupFilter& filter) { return Shown(filter.action) + " of " + Shown(filter.group); };
  for (const UserVerdict& verdict : verdicts) {
    std::vector<Cell> row = {Shown(verdict.user_id),
                             Cell(by(verdict.decider) + (verdict.undecided ? ", too costly to try" : ""),
                                  allowed ? Colour::Green : Colour::Red),
                             Shown(verdict.decider.pattern, Backslash::Kept)};
    if (!allowed) {
      row.emplace_back(verdict.overruled ? by(*verdict.overruled) : "-");
    }
    table.Add(std::move(row));
  }
  if (!table.Empty()) {
    table.Print(std::cout);
  }
}

ExitStatus Who(const Context& context, const WhoOptions& options) {
  const Perenna::HTTPRequest request(KnownMethod(options.method), options.target);
  const Verdicts wanted = options.refused ? Verdicts::Refused : Verdicts::Allowed;
  Database database(context.DatabaseFile(), Database::Access::Read);
  const std::vector<UserVerdict> verdicts = WhoMay(database, request, wanted);
  if (context.WantsJson()) {
    PrintJson(WhoJson(request, wanted, verdicts, verdicts.size()));
  } else {
    PrintVerdicts(verdicts, wanted);
  }
  return verdicts.empty() ? ExitStatus::Refused : ExitStatus::Done;
}

Colour ColourOf(const EffectiveFilter& filter) {
  if (filter.standing == EffectiveFilter::Standing::Applies) {
    return filter.action == Deny ? Colour::Red : Colour::Green;
  }
  return filter.standing == EffectiveFilter::Standing::InDoubt ? Colour::Red : Colour::Dim;
}

/// `with_group`: they may be of several.
void PrintFilters(const std::vector<EffectiveFilter>& filters, bool with_group) {
  std::vector<std::string> headings = {"METHOD", "ACTION", "PATTERN", ""};
  if (with_group) {
    headings.insert(headings.begin() + 3, "GROUP");
  }
  Table table(headings);
  for (const EffectiveFilter& filter : filters) {
    const bool applies = filter.standing == EffectiveFilter::Standing::Applies;
    const Colour colour = applies ? Colour::None : Colour::Dim;
    std::vector<Cell> row = {Cell(Shown(filter.method), colour), Cell(Shown(filter.action), ColourOf(filter)),
                             Cell(Shown(filter.pattern, Backslash::Kept), colour)};
    if (with_group) {
      row.emplace_back(Shown(filter.group), colour);
    }
    row.emplace_back(applies ? "" : StandingText(filter.standing) + std::string(": ") + filter.why, colour);
    table.Add(std::move(row));
  }
  if (!table.Empty()) {
    table.Print(std::cout);
  }
}

/// `what` is "user" or "group". Left-over memberships and filters of one that is gone are shown: they count again for
/// the next of that id.
ExitStatus PrintAccess(const Context& context, const std::string& what, const std::string& id, bool exists,
                       const std::vector<EffectiveFilter>& filters) {
  if (context.WantsJson()) {
    PrintJson({{what + "_id", JsonText(id)}, {what + "_exists", exists}, {"filters", EffectiveFiltersJson(filters)}});
  } else {
    PrintFilters(filters, what == "user");
    if (!exists) {
      Warn("there is no " + what + " " + Quoted(id));
    }
  }
  return exists ? ExitStatus::Done : ExitStatus::Refused;
}

ExitStatus UserAccess(const Context& context, const std::string& id) {
  Database database(context.DatabaseFile(), Database::Access::Read);
  return PrintAccess(context, "user", id, UserExists(database, id), EffectiveFiltersOfUser(database, id));
}

ExitStatus GroupAccess(const Context& context, const std::string& id) {
  Database database(context.DatabaseFile(), Database::Access::Read);
  return PrintAccess(context, "group", id, GroupExists(database, id), EffectiveFiltersOfGroup(database, id));
}

void AddAccess(CLI::App& group, Context& context, const std::string& description, const std::string& example,
               const std::string& name, ExitStatus (*run)(const Context&, const std::string&)) {
  CLI::App& access = AddCommand(group, "access", description, example);
  auto id = std::make_shared<std::string>();
  access.add_option(name, *id, "The id")->required();
  context.OnRun(access, [&context, id, run] { return run(context, *id); });
}

} // namespace

void AddUserAccessCommand(CLI::App& group, Context& context) {
  AddAccess(
      group, context,
      "Show what a user's groups allow and deny\nEvery filter by method, in the order of decision; marked are those "
      "that a Deny overrules, that repeat another, or that can never apply.",
      "perenna-access user access alice", "USER", UserAccess);
}

void AddGroupAccessCommand(CLI::App& group, Context& context) {
  AddAccess(group, context,
            "Show what a group allows and denies\nEvery filter by method, in the order of decision; marked are those "
            "that a Deny overrules, that repeat another, or that can never apply.",
            "perenna-access group access readers", "GROUP", GroupAccess);
}

void AddWhoCommand(CLI::App& app, Context& context) {
  CLI::App& who =
      AddCommand(app, "who",
                 "Who may perform a method on a target?\nEvery user who may, with the filter that decides. "
                 "Exit status 1: nobody.",
                 "perenna-access who DELETE /articles/7\n  perenna-access who GET /articles/drafts --refused");
  auto options = std::make_shared<WhoOptions>();
  who.add_option("METHOD", options->method, "An HTTP method, such as GET")->required();
  who.add_option("TARGET", options->target, "The request target, as the server receives it")->required();
  who.add_flag("--refused", options->refused,
               "Those whom a Deny keeps out, and the Allow that they would have otherwise");
  context.OnRun(who, [&context, options] { return Who(context, *options); });
}

} // namespace Tool
