#include "directory/policy/AccessChange.h"

#include <algorithm>
#include <iterator>

namespace AccessDirectory {

namespace {

using Numbers = std::vector<PatternNumber>;

Numbers Union(const Numbers& left, const Numbers& right) {
  Numbers all;
  std::set_union(left.begin(), left.end(), right.begin(), right.end(), std::back_inserter(all));
  return all;
}

Numbers Difference(const Numbers& left, const Numbers& right) {
  Numbers rest;
  std::set_difference(left.begin(), left.end(), right.begin(), right.end(), std::back_inserter(rest));
  return rest;
}

/// Asks until there is a witness; without one, what is unknown outweighs what is not there.
class Asking {
public:
  explicit Asking(Solver& solver) : m_Solver(solver) {}

  /// Whether there is a witness.
  bool Ask(const Question& question) {
    const Answer answer = m_Solver.Find(question);
    if (answer.kind != Answer::Kind::None) {
      m_Answer = answer;
    }
    return answer.kind == Answer::Kind::Witness;
  }
  const Answer& Result() const noexcept { return m_Answer; }

private:
  Solver& m_Solver;
  Answer m_Answer = {Answer::Kind::None, {}};
};

Answer LookForGain(const Rules& with, const Rules& without, Solver& solver) {
  Asking asking(solver);
  if (with.in_doubt) {
    return asking.Result();
  }
  const std::vector<Question::Term> denies = TermsOf(with.denies);
  // What is new is allowed by another Allow, or no longer refused by a Deny.
  const Numbers known = without.in_doubt ? Numbers() : without.allows;
  const std::vector<Question::Term> excluded = TermsOf(Union(with.denies, known));
  for (const PatternNumber allow : Difference(with.allows, known)) {
    if (asking.Ask({{{allow, false}}, excluded})) {
      return asking.Result();
    }
  }
  if (!without.in_doubt) {
    for (const PatternNumber deny : Difference(without.denies, with.denies)) {
      for (const PatternNumber allow : with.allows) {
        if (asking.Ask({{{deny, false}, {allow, false}}, denies})) {
          return asking.Result();
        }
      }
    }
  }
  return asking.Result();
}

class Comparison {
public:
  Comparison(const AccessRules& before, const AccessRules& after, const Patterns& patterns, Solver& solver)
      : m_Before(before), m_After(after), m_Patterns(patterns), m_Solver(solver) {}

  void Compare(const AccessChange& of_class, std::vector<AccessChange>& changes) {
    std::vector<AccessChange> found;
    for (std::uint32_t number = 0; number < Perenna::METH_MAX; ++number) {
      const auto method = static_cast<Perenna::Method_t>(number);
      const Answers& answers = AnswersFor(of_class, method);
      const Answer& granted = answers.first;
      const Answer& refused = answers.second;
      if (granted.kind == Answer::Kind::None && refused.kind == Answer::Kind::None) {
        continue;
      }
      const auto same = std::find_if(found.begin(), found.end(), [&](const AccessChange& change) {
        return change.granted == granted && change.refused == refused;
      });
      AccessChange& change = same == found.end() ? found.emplace_back(of_class) : *same;
      change.methods.push_back(method);
      change.granted = granted;
      change.refused = refused;
    }
    changes.insert(changes.end(), found.begin(), found.end());
  }

private:
  using Answers = std::pair<Answer, Answer>; // granted, refused

  const Answers& AnswersFor(const AccessChange& of_class, Perenna::Method_t method) {
    static const Answers none = {{Answer::Kind::None, {}}, {Answer::Kind::None, {}}};
    Rules before = m_Before.RulesOf(of_class.before, method);
    Rules after = m_After.RulesOf(of_class.after, method);
    if (before == after) {
      return none;
    }
    const auto [known, is_new] = m_Known.emplace(std::pair(std::move(before), std::move(after)), none);
    if (is_new) {
      const auto& [old_rules, new_rules] = known->first;
      known->second = {FindGain(new_rules, old_rules, m_Patterns, m_Solver),
                       FindGain(old_rules, new_rules, m_Patterns, m_Solver)};
    }
    return known->second;
  }

  const AccessRules& m_Before;
  const AccessRules& m_After;
  const Patterns& m_Patterns;
  Solver& m_Solver;
  std::map<std::pair<Rules, Rules>, Answers> m_Known;
};

bool Any(const std::vector<AccessChange>& changes, Answer::Kind kind, Answer AccessChange::*answer) {
  return std::any_of(changes.begin(), changes.end(),
                     [&](const AccessChange& change) { return (change.*answer).kind == kind; });
}

} // namespace

Json TextsJson(const std::vector<std::string>& texts) {
  Json json = Json::array();
  for (const std::string& text : texts) {
    json.push_back(JsonText(text));
  }
  return json;
}

Answer FindGain(const Rules& with, const Rules& without, const Patterns& patterns, Solver& solver) {
  Answer answer = LookForGain(with, without, solver);
  if (answer.kind == Answer::Kind::Witness &&
      (!with.Allow(patterns, answer.text) || without.Allow(patterns, answer.text))) {
    answer = {Answer::Kind::Unknown, "the module does not confirm " + Quoted(answer.text)};
  }
  return answer;
}

bool AccessChanges::Granted() const {
  return Any(changes, Answer::Kind::Witness, &AccessChange::granted);
}

bool AccessChanges::Refused() const {
  return Any(changes, Answer::Kind::Witness, &AccessChange::refused);
}

bool AccessChanges::Unknown() const {
  return Any(changes, Answer::Kind::Unknown, &AccessChange::granted) ||
         Any(changes, Answer::Kind::Unknown, &AccessChange::refused);
}

AccessChanges CompareAccess(const AccessRules& before, const AccessRules& after, const Patterns& patterns,
                            Solver& solver, Progress& progress) {
  std::map<std::pair<AccessRules::GroupSet, AccessRules::GroupSet>, std::vector<std::string>> classes;
  for (const auto& [user, groups] : before.Users()) {
    const auto later = after.Users().find(user);
    classes[{groups, later == after.Users().end() ? AccessRules::GroupSet() : later->second}].push_back(user);
  }
  for (const auto& [user, groups] : after.Users()) {
    if (before.Users().count(user) == 0) {
      classes[{AccessRules::GroupSet(), groups}].push_back(user);
    }
  }
  AccessChanges all;
  all.classes = classes.size();
  progress.Begin("Comparing", classes.size());
  Comparison comparison(before, after, patterns, solver);
  for (auto& [groups, users] : classes) {
    std::sort(users.begin(), users.end());
    comparison.Compare({users, groups.first, groups.second, {}, {}, {}}, all.changes);
    progress.Advance(1);
  }
  return all;
}

Json AnswerJson(const Answer& answer) {
  switch (answer.kind) {
  case Answer::Kind::None:
    return {{"answer", "none"}};
  case Answer::Kind::Witness:
    return {{"answer", "witness"}, {"target", answer.text}};
  case Answer::Kind::Unknown:
    break;
  }
  return {{"answer", "unknown"}, {"why", answer.text}};
}

Json AccessChanges::ToJson() const {
  Json rows = Json::array();
  for (const AccessChange& change : changes) {
    Json methods = Json::array();
    for (const Perenna::Method_t method : change.methods) {
      methods.push_back(MethodToString(method));
    }
    rows.push_back({{"users", TextsJson(change.users)},
                    {"groups_before", TextsJson(change.before)},
                    {"groups_after", TextsJson(change.after)},
                    {"methods", std::move(methods)},
                    {"granted", AnswerJson(change.granted)},
                    {"refused", AnswerJson(change.refused)}});
  }
  return {{"classes", classes},
          {"granted", Granted()},
          {"refused", Refused()},
          {"unknown", Unknown()},
          {"changes", std::move(rows)}};
}

} // namespace AccessDirectory
