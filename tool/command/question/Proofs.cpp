#include "tool/command/question/Proofs.h"

#include <iostream>
#include <set>

#include "host/Configuration.h"
#include "host/http/TargetRules.h"

namespace Tool {

namespace {

constexpr const char* PathAndQuery = "path-and-query";

} // namespace

void AddTargetOption(CLI::App& command, std::string& part) {
  command.add_option("--target", part, "The part of a target that filters see: path, unless --config says otherwise")
      ->type_name("PART")
      ->check(CLI::IsMember(std::vector<std::string>{"path", PathAndQuery}));
}

TargetRules RulesFor(const Context& context, const std::string& part) {
  if (context.ConfigurationFile().empty()) {
    return Host::TargetRulesOf(part == PathAndQuery, {});
  }
  const Host::DirectoryPart configured = Host::ReadDirectoryPart(context.ConfigurationFile());
  const bool with_query = configured.target == Host::TargetPart::PathAndQuery;
  if (!part.empty() && (part == PathAndQuery) != with_query) {
    throw Failure(Failure::Kind::Input,
                  "--target: the configuration says otherwise, " + std::string(with_query ? PathAndQuery : "path"));
  }
  return Host::TargetRulesOf(with_query, configured.target_allows);
}

CLI::Option& AddFailOnOption(CLI::App& command, std::string& change) {
  return *command
              .add_option("--fail-on", change,
                          "Fail when anything becomes allowed, or refused, or either; what is unknown fails too")
              ->type_name("CHANGE")
              ->check(CLI::IsMember(std::vector<std::string>{"granted", "refused", "any"}));
}

ExitStatus StatusOf(const AccessChanges& changes, const std::string& fail_on) {
  const bool granted = fail_on != "refused" && changes.Granted();
  const bool refused = fail_on != "granted" && changes.Refused();
  return !fail_on.empty() && (granted || refused || changes.Unknown()) ? ExitStatus::Refused : ExitStatus::Done;
}

Cell AnswerCell(const Answer& answer, Colour of_witness) {
  switch (answer.kind) {
  case Answer::Kind::None:
    return {"-", Colour::Dim};
  case Answer::Kind::Witness:
    return {Shown(answer.text), of_witness};
  case Answer::Kind::Unknown:
    break;
  }
  return {"?", Colour::Bold};
}

std::string MethodsText(const std::vector<Perenna::Method_t>& methods) {
  std::string text;
  for (const Perenna::Method_t method : methods) {
    text.append(text.empty() ? "" : ", ").append(MethodToString(method));
  }
  return text;
}

void PrintAccessChanges(const AccessChanges& changes, const TargetRules& rules) {
  Table table({"USERS", "GROUPS", "METHODS", "NOW ALLOWED", "NOW REFUSED"});
  std::set<std::string> unknown;
  for (const AccessChange& change : changes.changes) {
    std::string groups = GroupsText(change.before);
    if (change.before != change.after) {
      groups.append(" -> ").append(GroupsText(change.after));
    }
    table.Add({UsersText(change.users), groups, MethodsText(change.methods), AnswerCell(change.granted, Colour::Green),
               AnswerCell(change.refused, Colour::Red)});
    for (const Answer& answer : {change.granted, change.refused}) {
      if (answer.kind == Answer::Kind::Unknown) {
        unknown.insert(answer.text);
      }
    }
  }
  if (changes.changes.empty()) {
    std::cout << "Nobody's rights change, on " << TargetsText(rules) << ".\n";
    return;
  }
  table.Print(std::cout);
  for (const std::string& why : unknown) {
    std::cout << "?  " << why << '\n';
  }
  std::cout << "One target each is shown that changes, and what is not shown does not change, on " << TargetsText(rules)
            << ".\n";
}

} // namespace Tool
