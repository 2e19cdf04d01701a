#include "tool/command/Commands.h"

#include <algorithm>
#include <iostream>
#include <memory>

#include "directory/policy/AccessRulesReader.h"
#include "directory/policy/Matrix.h"
#include "tool/command/question/Proofs.h"
#include "tool/terminal/ProgressBar.h"

namespace Tool {

namespace {

struct MatrixOptions {
  bool groups = false;
  bool csv = false;
  std::string target;
};

/// A field of comma-separated values (RFC 4180).
std::string Field(const std::string& text) {
  std::string quoted = "\"";
  for (const char byte : text) {
    quoted += byte == '"' ? "\"\"" : std::string(1, byte);
  }
  return quoted + '"';
}

std::string JoinedGroups(const AccessRules::GroupSet& groups) {
  std::string text;
  for (const std::string& group : groups) {
    text.append(text.empty() ? "" : " ").append(group);
  }
  return text;
}

/// A line for each user or group, region and method that is not refused.
void PrintCsv(const Matrix& matrix) {
  std::cout << "subject,groups,target,method,verdict\r\n";
  for (const Matrix::Subject& subject : matrix.subjects) {
    const std::vector<std::string>& names = subject.who.users.empty() ? subject.who.groups : subject.who.users;
    for (const std::string& name : names) {
      for (const Matrix::Cell& cell : subject.cells) {
        const auto print = [&](const std::vector<Perenna::Method_t>& methods, const char* verdict) {
          for (const Perenna::Method_t method : methods) {
            std::cout << Field(name) << ',' << Field(JoinedGroups(subject.who.groups)) << ','
                      << Field(matrix.regions.regions[cell.region].witness) << ',' << MethodToString(method) << ','
                      << verdict << "\r\n";
          }
        };
        print(cell.allowed, "allowed");
        print(cell.unknown, "unknown");
      }
    }
  }
}

void PrintTable(const Matrix& matrix, const TargetRules& rules, bool groups) {
  Table table(groups ? std::vector<std::string>{"GROUP", "TARGETS LIKE", "METHODS"}
                     : std::vector<std::string>{"USERS", "GROUPS", "TARGETS LIKE", "METHODS"});
  const auto add = [&](const Matrix::Subject& subject, const std::string& target, const std::string& methods) {
    std::vector<Cell> row;
    if (!groups) {
      row.emplace_back(UsersText(subject.who.users));
    }
    row.emplace_back(GroupsText(subject.who.groups));
    row.emplace_back(target);
    row.emplace_back(methods);
    table.Add(std::move(row));
  };
  for (const Matrix::Subject& subject : matrix.subjects) {
    for (const Matrix::Cell& cell : subject.cells) {
      const std::string unknown = MethodsText(cell.unknown);
      add(subject, Shown(matrix.regions.regions[cell.region].witness),
          MethodsText(cell.allowed) + (cell.allowed.empty() || unknown.empty() ? "" : "; ") +
              (unknown.empty() ? "" : "? " + unknown));
    }
    if (subject.cells.empty()) {
      add(subject, "-", "-");
    }
  }
  table.Print(std::cout);
  std::cout << "The filters tell " << Count(matrix.regions.regions.size(), "region") << " of "
            << TargetsText(rules).substr(4) << " apart; where no row is, nothing is allowed.\n";
}

/// People learn what the matrix does not tell.
void PrintGaps(const Matrix& matrix) {
  if (matrix.regions.left_out > 0) {
    std::cerr << "perenna-access: there are more than " << MaximumRegions
              << " regions: " << Count(matrix.regions.left_out, "pattern")
              << " cut none any more, and \"?\" stands where they matter\n";
  } else if (!matrix.regions.IsComplete()) {
    std::cerr
        << "perenna-access: \"?\" stands where a pattern could not be translated; \"lint\" and \"diff\" say why\n";
  }
}

ExitStatus ShowMatrix(const Context& context, const MatrixOptions& options) {
  const TargetRules rules = RulesFor(context, options.target);
  Patterns patterns;
  const AccessRules directory = [&] {
    Database database(context.DatabaseFile(), Database::Access::Read);
    return ReadAccessRules(database, patterns);
  }();
  Matrix matrix;
  {
    ProgressBar progress;
    Solver solver(patterns, rules);
    matrix = MakeMatrix(directory, options.groups ? MatrixSubjects::Groups : MatrixSubjects::Users, patterns, solver,
                        progress);
  }
  if (context.WantsJson()) {
    Json json = {{"targets", TargetsJson(rules)}};
    json.update(matrix.ToJson(patterns));
    PrintJson(json);
    return ExitStatus::Done;
  }
  options.csv ? PrintCsv(matrix) : PrintTable(matrix, rules, options.groups);
  PrintGaps(matrix);
  return ExitStatus::Done;
}

} // namespace

void AddMatrixCommand(CLI::App& app, Context& context) {
  CLI::App& command = AddCommand(
      app, "matrix",
      "Show who may do what where, on all targets\n"
      "The filters cut all targets into regions, inside each of which every decision is the same; one target stands "
      "for "
      "each. Users who have the same groups are taken together. At most 1,000 regions; \"?\": not found out.",
      "perenna-access matrix\n"
      "  perenna-access matrix --groups --csv >rights.csv");
  auto options = std::make_shared<MatrixOptions>();
  command.add_flag("--groups", options->groups, "Groups, each by itself, instead of users");
  command.add_flag("--csv", options->csv, "Comma-separated values (RFC 4180), a line each for what is allowed");
  AddTargetOption(command, options->target);
  context.OnRun(command, [&context, options] { return ShowMatrix(context, *options); });
}

} // namespace Tool
