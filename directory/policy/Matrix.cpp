#include "directory/policy/Matrix.h"

#include <algorithm>
#include <array>
#include <set>

#include "directory/policy/AccessChange.h"

namespace AccessDirectory {

namespace {

using Numbers = std::vector<PatternNumber>;

bool Meet(const Numbers& few, const Numbers& many) {
  return std::any_of(few.begin(), few.end(),
                     [&](PatternNumber pattern) { return std::binary_search(many.begin(), many.end(), pattern); });
}

enum class Decision { Allowed, Refused, Unknown };

/// The module's decision for each target of the region, or that it may differ among them.
Decision Decide(const Rules& rules, const Region& region) {
  const bool may_be_allowed = Meet(region.matched, rules.allows) || Meet(region.unknown, rules.allows);
  if (rules.in_doubt || !may_be_allowed || Meet(region.matched, rules.denies)) {
    return Decision::Refused;
  }
  return Meet(region.matched, rules.allows) && !Meet(region.unknown, rules.denies) ? Decision::Allowed
                                                                                   : Decision::Unknown;
}

std::vector<UserClass> SubjectsOf(const AccessRules& rules, MatrixSubjects subjects) {
  if (subjects == MatrixSubjects::Users) {
    return ClassesOf(rules);
  }
  std::vector<UserClass> groups;
  for (const std::string& group : rules.Groups()) {
    groups.push_back({{group}, {}});
  }
  return groups;
}

using RulesOfMethods = std::array<Rules, Perenna::METH_MAX>;

RulesOfMethods RulesFor(const AccessRules& rules, const UserClass& who) {
  RulesOfMethods of_methods;
  for (std::uint32_t number = 0; number < Perenna::METH_MAX; ++number) {
    of_methods.at(number) = rules.RulesOf(who.groups, static_cast<Perenna::Method_t>(number));
  }
  return of_methods;
}

std::vector<Matrix::Cell> CellsOf(const RulesOfMethods& rules, const Regions& regions) {
  std::vector<Matrix::Cell> cells;
  for (std::size_t region = 0; region < regions.regions.size(); ++region) {
    Matrix::Cell cell = {region, {}, {}};
    for (std::uint32_t number = 0; number < Perenna::METH_MAX; ++number) {
      const Decision decision = Decide(rules.at(number), regions.regions[region]);
      if (decision != Decision::Refused) {
        (decision == Decision::Allowed ? cell.allowed : cell.unknown).push_back(static_cast<Perenna::Method_t>(number));
      }
    }
    if (!cell.allowed.empty() || !cell.unknown.empty()) {
      cells.push_back(std::move(cell));
    }
  }
  return cells;
}

Json PatternsJson(const Numbers& numbers, const Patterns& patterns) {
  Json json = Json::array();
  for (const PatternNumber number : numbers) {
    json.push_back(JsonText(patterns.Text(number)));
  }
  return json;
}

Json MethodsJson(const std::vector<Perenna::Method_t>& methods) {
  Json json = Json::array();
  for (const Perenna::Method_t method : methods) {
    json.push_back(MethodToString(method));
  }
  return json;
}

} // namespace

Matrix MakeMatrix(const AccessRules& rules, MatrixSubjects subjects, const Patterns& patterns, Solver& solver,
                  Progress& progress) {
  Matrix matrix;
  std::vector<RulesOfMethods> all_rules;
  std::set<PatternNumber> wanted;
  for (UserClass& who : SubjectsOf(rules, subjects)) {
    all_rules.push_back(RulesFor(rules, who));
    for (const Rules& of_method : all_rules.back()) {
      wanted.insert(of_method.allows.begin(), of_method.allows.end());
      wanted.insert(of_method.denies.begin(), of_method.denies.end());
    }
    matrix.subjects.push_back({std::move(who), {}});
  }
  matrix.regions = CutIntoRegions({wanted.begin(), wanted.end()}, patterns, solver, progress);
  for (std::size_t i = 0; i < matrix.subjects.size(); ++i) {
    matrix.subjects[i].cells = CellsOf(all_rules[i], matrix.regions);
  }
  return matrix;
}

Json Matrix::ToJson(const Patterns& patterns) const {
  Json region_rows = Json::array();
  for (const Region& region : regions.regions) {
    region_rows.push_back({{"target", region.witness},
                           {"patterns", PatternsJson(region.matched, patterns)},
                           {"unknown", PatternsJson(region.unknown, patterns)}});
  }
  Json subject_rows = Json::array();
  for (const Subject& subject : subjects) {
    Json cells = Json::array();
    for (const Cell& cell : subject.cells) {
      cells.push_back(
          {{"region", cell.region}, {"allowed", MethodsJson(cell.allowed)}, {"unknown", MethodsJson(cell.unknown)}});
    }
    subject_rows.push_back({{"users", TextsJson(subject.who.users)},
                            {"groups", TextsJson(subject.who.groups)},
                            {"cells", std::move(cells)}});
  }
  return {{"complete", regions.IsComplete()},
          {"left_out", regions.left_out},
          {"regions", std::move(region_rows)},
          {"subjects", std::move(subject_rows)}};
}

} // namespace AccessDirectory
