#include "tool/command/Commands.h"

#include <iostream>
#include <memory>
#include <set>

#include "directory/file/Database.h"
#include "directory/lint/pattern/PatternFindings.h"
#include "directory/Module.h"
#include "directory/member/Creation.h"
#include "directory/text/Vocabulary.h"
#include "tool/command/entry/Listing.h"
#include "tool/DirectoryNames.h"
#include "tool/terminal/Table.h"

namespace Tool {

namespace {

namespace Keys = LocalAccessManager::Strings;

struct FilterOptions {
  std::string group;
  std::string action;
  std::string methods; // joined by commas
  std::string pattern;
  std::vector<std::string> urls;
  std::string method;
  PageOptions page;
  ListOptions list;
  std::string search;
  bool unchecked = false;
};

using Options = std::shared_ptr<FilterOptions>;

Json FilterJson(const Perenna::PListDict& row) {
  return {{"group_id", JsonText(Field(row, Keys::group_id))},
          {"action", JsonText(Field(row, Keys::action))},
          {"method", JsonText(Field(row, Keys::method))},
          {"filter", JsonText(Field(row, Keys::filter))}};
}

std::vector<std::string> Methods(const FilterOptions& options) {
  return CLI::detail::split(options.methods, ',');
}

/// A pattern between quotes, as it would be written.
std::string QuotedPattern(const std::string& pattern) {
  return '"' + Shown(pattern, Backslash::Kept) + '"';
}

/// What a finding says, and what mends it.
std::string Sentence(const PatternReading& reading, const PatternFinding& finding) {
  return finding.why + "; " + (finding.advice.empty() ? "better: " + QuotedPattern(reading.better) : finding.advice);
}

std::unique_ptr<Perenna::RegularExpression> Compile(const std::string& pattern) {
  std::string fault;
  auto compiled = CompilePattern(pattern, fault);
  if (!fault.empty()) {
    std::string message = "PATTERN: " + QuotedPattern(pattern) + " is " + fault;
    const PatternReading reading = ReadPattern(pattern, true, Perenna::METH_MAX);
    for (const PatternFinding& finding : reading.findings) {
      message += ". " + Sentence(reading, finding);
    }
    throw Failure(Failure::Kind::Input, message);
  }
  return compiled;
}

/// What a pattern does not mean that looks as if it did. What is merely worth a look is for "lint".
std::vector<std::string> PatternWarnings(const FilterOptions& options, const std::string& method_name) {
  Perenna::Method_t method = Perenna::METH_MAX;
  static_cast<void>(Perenna::StringToMethod(method_name, method));
  const PatternReading reading = ReadPattern(options.pattern, options.action == Allow, method);
  std::vector<std::string> warnings;
  for (const PatternFinding& finding : reading.findings) {
    if (finding.kind->severity == Severity::Problem) {
      warnings.push_back("PATTERN: " + Sentence(reading, finding));
    }
  }
  return warnings;
}

/// "Allow" or "Deny", whatever the letter case: the module knows no other spelling. Throws `Failure`.
std::string KnownAction(const std::string& action) {
  std::string known = SpelledAction(action);
  if (known != Allow && known != Deny) {
    throw Failure(Failure::Kind::Input, "ACTION: " + Quoted(action) + " is neither Allow nor Deny");
  }
  return known;
}

Failure NoGroup(const std::string& group) {
  return {Failure::Kind::Refused, "there is no group " + Quoted(group)};
}

long long CountStored(Database& database, const FilterOptions& options, const std::string& method) {
  return database.Number("SELECT count(*) FROM filters WHERE method = ? AND group_id = ? AND filter = ? AND action = ?",
                         {method, options.group, options.pattern, options.action});
}

/// Refuses what the module would store but never apply, and what is there already.
void CheckFilter(Module& module, Database& database, const FilterOptions& options) {
  std::set<std::string> methods;
  for (const std::string& method : Methods(options)) {
    KnownMethod(method);
    if (!methods.insert(method).second) {
      throw Failure(Failure::Kind::Input, "METHOD: " + Quoted(method) + " is given twice");
    }
  }
  Compile(options.pattern);
  if (!module.GroupExists(options.group)) {
    throw NoGroup(options.group);
  }
  for (const std::string& method : methods) {
    if (CountStored(database, options, method) > 0) {
      throw Failure(Failure::Kind::Refused, "the group " + Quoted(options.group) +
                                                " has this filter already: " + options.action + " " + method + " " +
                                                Quoted(options.pattern) + "; nothing was added");
    }
  }
}

Perenna::PListDict Request(const FilterOptions& options, const std::string& method) {
  Perenna::PListDict request;
  request.SetValue(Keys::group_id, options.group);
  request.SetValue(Keys::action, options.action);
  request.SetValue(Keys::method, method);
  request.SetValue(Keys::filter, options.pattern);
  return request;
}

ExitStatus AddFilter(const Context& context, const FilterOptions& given) {
  Module module(context.DatabaseFile());
  FilterOptions options = given;
  if (!options.unchecked) {
    options.action = KnownAction(options.action);
    Database database(context.DatabaseFile(), Database::Access::Read);
    CheckFilter(module, database, options);
  }
  Json added = Json::array();
  const auto writer = context.Writer();
  const bool module_may_write = writer->ModuleMayWrite();
  for (const std::string& method : Methods(options)) {
    const Perenna::PListDict request = Request(options, method);
    if (module_may_write) {
      module.Apply([&request](LocalAccessManager::UserManager& manager) { return manager.CreateFilter(request); });
    }
    added.push_back(FilterJson(request));
  }
  if (!module_may_write) {
    writer->Write([&options](Database& database) {
      for (const std::string& method : Methods(options)) {
        CreateFilter(database, method, options.group, options.pattern, options.action);
      }
    });
  }
  const std::vector<std::string> warnings =
      PatternWarnings(options, options.methods.substr(0, options.methods.find(',')));
  for (const std::string& warning : warnings) {
    if (!context.WantsJson()) {
      Warn(warning);
    }
  }
  const std::size_t count = added.size();
  context.Report("Added " + Count(count, "filter") + ".",
                 {{"added", std::move(added)}, {"warnings", JsonTexts(warnings)}});
  return ExitStatus::Done;
}

ExitStatus DeleteFilter(const Context& context, const FilterOptions& options) {
  Module module(context.DatabaseFile());
  Database database(context.DatabaseFile(), Database::Access::Read);
  // A stored method may itself hold a comma.
  const bool whole = CountStored(database, options, options.methods) > 0;
  Json deleted = Json::array();
  const auto writer = context.Writer();
  const bool module_may_write = writer->ModuleMayWrite();
  const std::vector<std::string> methods = whole ? std::vector<std::string>{options.methods} : Methods(options);
  for (const std::string& method : methods) {
    const long long stored = CountStored(database, options, method);
    const Perenna::PListDict request = Request(options, method);
    if (module_may_write) {
      module.Apply([&request](LocalAccessManager::UserManager& manager) { return manager.DeleteFilter(request); });
    }
    deleted.insert(deleted.end(), static_cast<std::size_t>(stored), FilterJson(request));
  }
  if (deleted.empty()) {
    throw Failure(Failure::Kind::Refused, "no filter has exactly these four values; \"filter list --group " +
                                              Shown(options.group) + "\" shows what is stored");
  }
  if (!module_may_write) {
    writer->Write([&](Database& changed) {
      for (const std::string& method : methods) {
        AccessDirectory::DeleteFilter(changed, method, options.group, options.pattern, options.action);
      }
    });
  }
  const std::size_t count = deleted.size();
  context.Report("Deleted " + Count(count, "filter") + ".", {{"deleted", std::move(deleted)}});
  return ExitStatus::Done;
}

ExitStatus ListFilters(const Context& context, const FilterOptions& options) {
  Module module(context.DatabaseFile());
  std::function<bool(const Perenna::PListDict&)> keep;
  if (!options.group.empty() || !options.method.empty() || !options.search.empty()) {
    keep = [&options](const Perenna::PListDict& row) {
      return (options.group.empty() || Field(row, Keys::group_id) == options.group) &&
             (options.method.empty() || Field(row, Keys::method) == options.method) &&
             Field(row, Keys::filter).find(options.search) != std::string::npos;
    };
  }
  const Page page = List(module, &LocalAccessManager::UserManager::GetFilters, options.page, keep);
  // What a filter was stored with is listed even where nothing has that name: left-over and misspelled ones are to be
  // found. Only an empty answer may come from a slip of the one who asks.
  const bool group_exists = options.group.empty() || module.GroupExists(options.group);
  if (page.total == 0 && !group_exists) {
    throw NoGroup(options.group);
  }
  if (page.total == 0 && !options.method.empty()) {
    KnownMethod(options.method);
  }
  if (options.list.IsGiven()) {
    PrintEntries(options.list, page.ToJson(FilterJson)[Perenna::PagedResults::results],
                 {Keys::group_id, Keys::action, Keys::method, Keys::filter});
    return ExitStatus::Done;
  }
  if (context.WantsJson()) {
    Json json = page.ToJson(FilterJson);
    if (!options.group.empty()) {
      json["group_exists"] = group_exists;
    }
    PrintJson(json);
    return ExitStatus::Done;
  }
  Table table({"GROUP", "ACTION", "METHOD", "PATTERN"});
  for (const Perenna::PListDict* row : page.rows) {
    table.Add({Shown(Field(*row, Keys::group_id)), Shown(Field(*row, Keys::action)), Shown(Field(*row, Keys::method)),
               Shown(Field(*row, Keys::filter), Backslash::Kept)});
  }
  table.Print(std::cout);
  page.PrintRemainder("filter");
  if (!group_exists) {
    std::cout << "Note: there is no group " << Quoted(options.group)
              << "; its filters apply again to a later group of this id.\n";
  }
  return ExitStatus::Done;
}

ExitStatus TestPattern(const Context& context, const FilterOptions& options) {
  const auto pattern = Compile(options.pattern);
  ExitStatus status = ExitStatus::Done;
  Json results = Json::array();
  Table table({"MATCHES", "PART", "URL"});
  for (const std::string& url : options.urls) {
    std::size_t begin = 0;
    std::size_t end = 0;
    const bool matches = pattern->match(url, begin, end);
    const std::string part = matches ? url.substr(begin, end - begin) : std::string();
    status = matches ? status : ExitStatus::Refused;
    results.push_back({{"url", JsonText(url)}, {"matches", matches}, {"part", matches ? JsonText(part) : Json()}});
    table.Add({matches ? Cell("yes", Colour::Green) : Cell("no", Colour::Red),
               matches ? Shown(part, Backslash::Kept) : std::string("-"), Shown(url, Backslash::Kept)});
  }
  if (context.WantsJson()) {
    PrintJson({{"pattern", JsonText(options.pattern)}, {"results", std::move(results)}});
  } else {
    table.Print(std::cout);
  }
  return status;
}

void AddFilterArguments(CLI::App& command, FilterOptions& options) {
  command.add_option("GROUP", options.group, "The group whose members the filter concerns")->required();
  command.add_option("ACTION", options.action, "Allow or Deny")->required();
  command.add_option("METHOD", options.methods, "An HTTP method, or several joined by commas: GET,HEAD")->required();
  command.add_option("PATTERN", options.pattern, "A POSIX extended regular expression, matched against the URL")
      ->required();
}

} // namespace

void AddFilterCommands(CLI::App& app, Context& context) {
  CLI::App& group = AddCommandGroup(app, "filter", "Add, delete, list and try filters");
  const auto make = [&](const std::string& name, const std::string& description, const std::string& example,
                        ExitStatus (*run)(const Context&, const FilterOptions&)) -> std::pair<CLI::App&, Options> {
    CLI::App& command = AddCommand(group, name, description, example);
    auto options = std::make_shared<FilterOptions>();
    context.OnRun(command, [&context, options, run] { return run(context, *options); });
    return {command, options};
  };

  const auto [add, add_options] = make("add", "Add a filter, or one for each of several methods",
                                       "perenna-access filter add editors Allow GET,HEAD '^/articles(/|$)'", AddFilter);
  AddFilterArguments(add, *add_options);
  add.add_flag("--unchecked", add_options->unchecked,
               "Store it even if it can never apply (unknown group, method or action, malformed pattern) or is there "
               "already");

  const auto [remove, remove_options] =
      make("delete", "Delete the filters that equal all four values",
           "perenna-access filter delete editors Allow GET '^/articles(/|$)'", DeleteFilter);
  AddFilterArguments(remove, *remove_options);

  const auto [list, list_options] =
      make("list", "List filters", "perenna-access filter list --group editors", ListFilters);
  list.add_option("--group", list_options->group, "Only the filters of this group")->type_name("GROUP");
  list.add_option("--method", list_options->method, "Only the filters for this method")->type_name("METHOD");
  list.add_option("--search", list_options->search, "Only the filters whose pattern holds this text")
      ->type_name("TEXT");
  AddPageOptions(list, list_options->page);
  AddListOptions(list, list_options->list);

  const auto [test, test_options] =
      make("test", "Try a pattern on URLs, without a database\nExit status 1 unless all match.",
           "perenna-access filter test '^/articles(/|$)' /articles/7 /about", TestPattern);
  test.add_option("PATTERN", test_options->pattern, "A POSIX extended regular expression")->required();
  test.add_option("URL", test_options->urls, "The URLs to try it on")->required();
}

} // namespace Tool
