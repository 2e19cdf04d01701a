#include "tool/command/Commands.h"

#include <iostream>
#include <memory>
#include <optional>

#include "directory/explain/Explanation.h"
#include "directory/Module.h"
#include "directory/text/Vocabulary.h"
#include "tool/command/entry/Listing.h"
#include "tool/DirectoryNames.h"
#include "tool/terminal/LineReader.h"
#include "tool/command/question/Proofs.h"
#include "tool/command/question/Question.h"
#include "tool/terminal/Table.h"

namespace Tool {

namespace {

constexpr std::size_t ShownBytes = 200; // of a line that is no request

struct CheckOptions {
  std::string user;
  std::string method;
  std::string target;
  bool explain = false;
  bool from_stdin = false;
  bool matching = false;
  std::string expectations;
  std::string part; ///< of targets, for sentences
};

bool MayDo(Module& module, const Perenna::HTTPRequest& request, const std::string& user_id) {
  return module.Ask(
      [&](LocalAccessManager::UserManager& manager) { return manager.TestRequestForUser(request, user_id); });
}

/// Memberships of a user who is gone may still grant: that is not the same as a refusal.
std::string NoUser(const std::string& user_id) {
  return "there is no user " + Quoted(user_id);
}

const char* Verdict(bool allowed) {
  return allowed ? "allowed" : "refused";
}

void PrintExplanation(const Explanation& explanation, bool matching_only) {
  std::cout << Shown(explanation.Reason(), Backslash::Kept) << ".\n";
  const bool any = std::any_of(explanation.filters.begin(), explanation.filters.end(), [&](const auto& filter) {
    return !matching_only || filter.Applies() || (filter.names_method && filter.undecided);
  });
  if (!any) {
    return;
  }
  std::cout << '\n';
  Table table({"", "GROUP", "ACTION", "METHOD", "NAMED", "MATCHES", "PART", "PATTERN"});
  for (const ExplainedFilter& filter : explanation.filters) {
    if (matching_only && !filter.Applies() && !(filter.names_method && filter.undecided)) {
      continue;
    }
    const Colour colour = filter.Applies() ? Colour::None : Colour::Dim;
    const Colour action = !filter.decides ? colour : explanation.allowed ? Colour::Green : Colour::Red;
    table.Add({Cell(filter.decides ? "=>" : "", action), Cell(Shown(filter.group), colour),
               Cell(Shown(filter.action), action), Cell(Shown(filter.method), colour),
               Cell(filter.names_method ? "yes" : "no", colour),
               Cell(filter.undecided ? "?"
                    : filter.matches ? "yes"
                                     : "no",
                    colour),
               Cell(filter.matches ? Shown(filter.part, Backslash::Kept) : "-", colour),
               Cell(Shown(filter.pattern, Backslash::Kept), colour)});
  }
  table.Print(std::cout);
}

ExitStatus CheckOne(const Context& context, const CheckOptions& options) {
  const std::string file = context.DatabaseFile();
  const Perenna::HTTPRequest request(KnownMethod(options.method), options.target);
  Module module(file);
  bool allowed = false;
  const bool user_exists = module.UserExists(options.user);
  Json json;
  if (options.explain || options.matching) {
    Database database(file, Database::Access::Read);
    const Explanation explanation = Explain(module, database, request, options.user);
    allowed = explanation.allowed;
    json = CheckJson(request, options.user, explanation);
    if (!context.WantsJson()) {
      PrintExplanation(explanation, options.matching);
    }
  } else {
    allowed = MayDo(module, request, options.user);
    json = {{"user_id", JsonText(options.user)},
            {"user_exists", user_exists},
            {"method", options.method},
            {"url", JsonText(options.target)},
            {"allowed", allowed}};
    if (!context.WantsJson()) {
      std::cout << InColour(Verdict(allowed), allowed ? Colour::Green : Colour::Red) << '\n';
    }
  }
  if (context.WantsJson()) {
    PrintJson(json);
  } else if (!user_exists) {
    Warn(NoUser(options.user));
  }
  return allowed ? ExitStatus::Done : ExitStatus::Refused;
}

/// What came of a line.
struct Answer {
  bool valid = false;
  bool user_exists = false;
  bool allowed = false;
  std::string reason; ///< empty: not asked for
};

/// Prints the answer to a line. Written out: there may be many.
void PrintAnswer(const Context& context, std::size_t line, const Answer& answer) {
  if (!context.WantsJson()) {
    const std::string verdict = answer.valid ? Verdict(answer.allowed) : "invalid";
    std::cout << (answer.reason.empty() ? verdict : Shown(answer.reason, Backslash::Kept)) << '\n';
    return;
  }
  const auto text = [](bool value) { return value ? "true" : "false"; };
  std::cout << "{\"line\":" << line << ",\"valid\":" << text(answer.valid);
  if (answer.valid) {
    std::cout << ",\"user_exists\":" << text(answer.user_exists) << ",\"allowed\":" << text(answer.allowed);
    if (!answer.reason.empty()) {
      std::cout << ",\"reason\":" << JsonText(answer.reason).dump(-1, ' ', true);
    }
  }
  std::cout << "}\n";
}

ExitStatus CheckLines(const Context& context, bool explain) {
  Module module(context.DatabaseFile());
  std::optional<Database> database;
  if (explain) {
    database.emplace(context.DatabaseFile(), Database::Access::Read);
  }
  LineReader reader([] { std::cout.flush(); }); // whoever waits for answers before the next question gets them
  std::string line;
  std::size_t number = 0;
  bool all_allowed = true;
  bool all_valid = true;
  while (reader.Next(line)) {
    ++number;
    const std::optional<Question> question = ReadQuestion(line);
    Answer answer;
    if (question && database) {
      const Explanation explanation =
          Explain(module, *database, Perenna::HTTPRequest(question->method, question->target), question->user);
      answer = {true, explanation.user_exists, explanation.allowed, explanation.Reason()};
    } else if (question) {
      answer = {true, module.UserExists(question->user),
                MayDo(module, Perenna::HTTPRequest(question->method, question->target), question->user), ""};
    } else {
      ReportError(context.Errors(), ExitStatus::Usage,
                  Quoted(line.substr(0, ShownBytes)) + " is not \"USER METHOD TARGET\" with a known method", number);
    }
    if (answer.valid && !answer.user_exists && !context.WantsJson()) {
      Warn("line " + std::to_string(number) + ": " + NoUser(question->user));
    }
    all_valid = all_valid && answer.valid;
    all_allowed = all_allowed && answer.allowed;
    PrintAnswer(context, number, answer);
  }
  if (number == 0) {
    throw Failure(Failure::Kind::Input, "standard input holds no request: one is expected a line, USER METHOD TARGET");
  }
  return !all_valid ? ExitStatus::Usage : all_allowed ? ExitStatus::Done : ExitStatus::Refused;
}

ExitStatus Check(const Context& context, const CheckOptions& options) {
  const bool names_request = !options.user.empty() || !options.method.empty() || !options.target.empty();
  if (options.from_stdin || !options.expectations.empty()) {
    if (names_request || options.matching) {
      throw Failure(Failure::Kind::Input, std::string(options.from_stdin ? "--stdin" : "--expect") +
                                              " takes neither a request nor --matching");
    }
    return options.from_stdin ? CheckLines(context, options.explain)
                              : CheckExpectations(context, options.expectations, options.part);
  }
  if (options.user.empty() || options.method.empty() || options.target.empty()) {
    throw Failure(Failure::Kind::Input, "which request? Give USER METHOD TARGET, or --stdin, or --expect FILE");
  }
  return CheckOne(context, options);
}

ExitStatus Methods(const Context& context, const CheckOptions& options) {
  Module module(context.DatabaseFile());
  Perenna::PListArray methods;
  module.Ask([&](LocalAccessManager::UserManager& manager) {
    return manager.GetOptionsMethods(Perenna::HTTPRequest(Perenna::METH_OPTIONS, options.target), options.user,
                                     methods);
  });
  std::vector<std::string> names;
  for (const Perenna::PListItem* item : methods) {
    names.push_back(dynamic_cast<const Perenna::PListData&>(*item).GetValue());
  }
  const bool user_exists = module.UserExists(options.user);
  if (context.WantsJson()) {
    PrintJson({{"user_id", JsonText(options.user)},
               {"user_exists", user_exists},
               {"url", JsonText(options.target)},
               {"methods", JsonTexts(names)}});
    return names.empty() ? ExitStatus::Refused : ExitStatus::Done;
  }
  for (const std::string& name : names) {
    std::cout << Shown(name) << '\n';
  }
  if (!user_exists) {
    Warn(NoUser(options.user));
  }
  return names.empty() ? ExitStatus::Refused : ExitStatus::Done;
}

} // namespace

void AddCheckCommands(CLI::App& app, Context& context) {
  CLI::App& check = AddCommand(app, "check", "May a user perform a method on a target?\nExit status 0: yes, 1: no.",
                               "perenna-access check alice GET /articles/7 --explain\n"
                               "  printf 'alice GET /articles/7\\n' | perenna-access check --stdin\n"
                               "  perenna-access check --expect policy.expect");
  auto options = std::make_shared<CheckOptions>();
  check.add_option("USER", options->user, "The user's id");
  check.add_option("METHOD", options->method, "An HTTP method, such as GET");
  check.add_option("TARGET", options->target, "The request target, as the server receives it");
  check.add_flag("--explain", options->explain,
                 "Show every filter of the user's groups in the order of decision, and which one decided");
  CLI::Option* const from_stdin = check.add_flag(
      "--stdin", options->from_stdin,
      "Read requests from standard input, USER METHOD TARGET a line, and answer each with a line: allowed, "
      "refused or invalid. Exit status 0: all allowed, 1: some refused, 2: some invalid");
  check.add_flag("--matching", options->matching, "As --explain, but only the filters that match the request");
  check
      .add_option(
          "--expect", options->expectations,
          "Hold the directory to the lines of a file (- for standard input), allow or refuse, USER METHOD TARGET, or "
          "sentences as of prove; print the result in TAP. Exit status 1: some are not met")
      ->type_name("FILE")
      ->excludes(from_stdin);
  AddTargetOption(check, options->part);
  context.OnRun(check, [&context, options] { return Check(context, *options); });

  CLI::App& methods = AddCommand(app, "methods", "Which methods may a user use on a target?\nExit status 1: none.",
                                 "perenna-access methods alice /articles/7");
  auto methods_options = std::make_shared<CheckOptions>();
  methods.add_option("USER", methods_options->user, "The user's id")->required();
  methods.add_option("TARGET", methods_options->target, "The request target, as the server receives it")->required();
  context.OnRun(methods, [&context, methods_options] { return Methods(context, *methods_options); });
}

} // namespace Tool
