#include "tool/command/Commands.h"

#include <iostream>
#include <memory>

#include "directory/Explanation.h"
#include "directory/Module.h"
#include "directory/Vocabulary.h"
#include "tool/command/Listing.h"
#include "tool/DirectoryNames.h"
#include "tool/terminal/LineReader.h"
#include "tool/terminal/Table.h"

namespace Tool {

namespace {

struct CheckOptions {
  std::string user;
  std::string method;
  std::string url;
  bool explain = false;
  bool from_stdin = false;
};

bool MayDo(Module& module, const Perenna::HTTPRequest& request, const std::string& user_id) {
  return module.Ask(
      [&](LocalAccessManager::UserManager& manager) { return manager.TestRequestForUser(request, user_id); });
}

const char* Verdict(bool allowed) {
  return allowed ? "allowed" : "refused";
}

void PrintExplanation(const Explanation& explanation) {
  std::cout << Shown(explanation.Reason(), Backslash::Kept) << ".\n";
  if (explanation.filters.empty()) {
    return;
  }
  std::cout << '\n';
  Table table({"", "GROUP", "ACTION", "METHOD", "NAMED", "MATCHES", "PART", "PATTERN"});
  for (const ExplainedFilter& filter : explanation.filters) {
    const Colour colour = filter.Applies() ? Colour::None : Colour::Dim;
    const Colour action = !filter.decides ? colour : explanation.allowed ? Colour::Green : Colour::Red;
    table.Add({Cell(filter.decides ? "=>" : "", action), Cell(Shown(filter.group), colour),
               Cell(Shown(filter.action), action), Cell(Shown(filter.method), colour),
               Cell(filter.names_method ? "yes" : "no", colour), Cell(filter.matches ? "yes" : "no", colour),
               Cell(filter.matches ? Shown(filter.part, Backslash::Kept) : "-", colour),
               Cell(Shown(filter.pattern, Backslash::Kept), colour)});
  }
  table.Print(std::cout);
}

ExitStatus CheckOne(const Context& context, const CheckOptions& options) {
  const std::string file = context.DatabaseFile();
  const Perenna::HTTPRequest request(KnownMethod(options.method), options.url);
  Module module(file);
  bool allowed = false;
  Json json = {{"user_id", JsonText(options.user)},
               {"method", options.method},
               {"url", JsonText(options.url)},
               {"allowed", false}};
  if (options.explain) {
    Database database(file, Database::Access::Read);
    const Explanation explanation = Explain(module, database, request, options.user);
    allowed = explanation.allowed;
    json.update(explanation.ToJson());
    if (!context.WantsJson()) {
      PrintExplanation(explanation);
    }
  } else {
    allowed = MayDo(module, request, options.user);
    if (!context.WantsJson()) {
      std::cout << InColour(Verdict(allowed), allowed ? Colour::Green : Colour::Red) << '\n';
    }
  }
  if (context.WantsJson()) {
    json["allowed"] = allowed;
    PrintJson(json);
  }
  return allowed ? ExitStatus::Done : ExitStatus::Refused;
}

/// "METHOD URL USER", one blank between them; the user's id may itself hold blanks.
bool SplitLine(const std::string& line, std::string& method, std::string& url, std::string& user) {
  const std::size_t first = line.find(' ');
  const std::size_t second = first == std::string::npos ? first : line.find(' ', first + 1);
  if (second == std::string::npos || second + 1 == line.size()) {
    return false;
  }
  method.assign(line, 0, first);
  url.assign(line, first + 1, second - first - 1);
  user.assign(line, second + 1);
  return true;
}

/// Prints the answer to a line, null for a line that is not valid. Written out: there may be many.
void PrintAnswer(const Context& context, std::size_t line, const bool* allowed) {
  if (!context.WantsJson()) {
    std::cout << (allowed == nullptr ? "invalid" : Verdict(*allowed)) << '\n';
    return;
  }
  std::cout << "{\"line\":" << line << ",\"valid\":" << (allowed == nullptr ? "false" : "true");
  if (allowed != nullptr) {
    std::cout << ",\"allowed\":" << (*allowed ? "true" : "false");
  }
  std::cout << "}\n";
}

ExitStatus CheckLines(const Context& context) {
  Module module(context.DatabaseFile());
  LineReader reader([] { std::cout.flush(); }); // whoever waits for answers before the next question gets them
  std::string line;
  std::string method_name;
  std::string url;
  std::string user;
  bool all_allowed = true;
  bool all_valid = true;
  for (std::size_t number = 1; reader.Next(line); ++number) {
    Perenna::Method_t method = Perenna::METH_MAX;
    if (!SplitLine(line, method_name, url, user) || !Perenna::StringToMethod(method_name, method)) {
      std::cerr << "perenna-access: line " << number << ": " << Quoted(line.substr(0, 200))
                << " is not \"METHOD URL USER\" with a known method\n";
      PrintAnswer(context, number, nullptr);
      all_valid = false;
      continue;
    }
    const bool allowed = MayDo(module, Perenna::HTTPRequest(method, url), user);
    all_allowed = all_allowed && allowed;
    PrintAnswer(context, number, &allowed);
  }
  return !all_valid ? ExitStatus::Usage : all_allowed ? ExitStatus::Done : ExitStatus::Refused;
}

ExitStatus Check(const Context& context, const CheckOptions& options) {
  const bool names_request = !options.user.empty() || !options.method.empty() || !options.url.empty();
  if (options.from_stdin) {
    if (names_request || options.explain) {
      throw Failure(Failure::Kind::Input, "--stdin takes neither a request nor --explain");
    }
    return CheckLines(context);
  }
  if (options.user.empty() || options.method.empty() || options.url.empty()) {
    throw Failure(Failure::Kind::Input, "which request? Give USER METHOD URL, or --stdin");
  }
  return CheckOne(context, options);
}

ExitStatus Methods(const Context& context, const CheckOptions& options) {
  Module module(context.DatabaseFile());
  Perenna::PListArray methods;
  module.Ask([&](LocalAccessManager::UserManager& manager) {
    return manager.GetOptionsMethods(Perenna::HTTPRequest(Perenna::METH_OPTIONS, options.url), options.user, methods);
  });
  std::vector<std::string> names;
  for (const Perenna::PListItem* item : methods) {
    names.push_back(dynamic_cast<const Perenna::PListData&>(*item).GetValue());
  }
  if (context.WantsJson()) {
    PrintJson({{"user_id", JsonText(options.user)}, {"url", JsonText(options.url)}, {"methods", JsonTexts(names)}});
  } else {
    for (const std::string& name : names) {
      std::cout << Shown(name) << '\n';
    }
  }
  return names.empty() ? ExitStatus::Refused : ExitStatus::Done;
}

} // namespace

void AddCheckCommands(CLI::App& app, Context& context) {
  CLI::App& check = AddCommand(app, "check", "May a user perform a method on a URL?\nExit status 0: yes, 1: no.",
                               "perenna-access check alice GET /articles/7 --explain\n"
                               "  printf 'GET /articles/7 alice\\n' | perenna-access check --stdin");
  auto options = std::make_shared<CheckOptions>();
  check.add_option("USER", options->user, "The user's id");
  check.add_option("METHOD", options->method, "An HTTP method, such as GET");
  check.add_option("URL", options->url, "The request target, as the server receives it");
  check.add_flag("--explain", options->explain,
                 "Show every filter of the user's groups in the order of decision, and which one decided");
  check.add_flag("--stdin", options->from_stdin,
                 "Read requests from standard input, METHOD URL USER a line, and answer each with a line: allowed, "
                 "refused or invalid. Exit status 0: all allowed, 1: some refused, 2: some invalid");
  context.OnRun(check, [&context, options] { return Check(context, *options); });

  CLI::App& methods = AddCommand(app, "methods", "Which methods may a user use on a URL?\nExit status 1: none.",
                                 "perenna-access methods alice /articles/7");
  auto methods_options = std::make_shared<CheckOptions>();
  methods.add_option("USER", methods_options->user, "The user's id")->required();
  methods.add_option("URL", methods_options->url, "The request target, as the server receives it")->required();
  context.OnRun(methods, [&context, methods_options] { return Methods(context, *methods_options); });
}

} // namespace Tool
