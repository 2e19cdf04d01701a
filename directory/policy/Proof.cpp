#include "directory/policy/Proof.h"

#include <algorithm>

#include "directory/Failure.h"

namespace AccessDirectory {

namespace {

class Prover {
public:
  Prover(const Sentence& sentence, Patterns& patterns, Solver& solver)
      : m_Sentence(sentence), m_Patterns(patterns), m_Place({patterns.Add(sentence.place), false}), m_Solver(solver) {}

  /// A target that the sentence is wrong about.
  const Answer& FindExample(const Rules& rules) {
    const auto [known, is_new] = m_Known.emplace(rules, Answer{Answer::Kind::None, {}});
    if (is_new) {
      Answer& answer = known->second;
      m_Sentence.may ? FindRefused(rules, answer) : FindAllowed(rules, answer);
      if (answer.kind == Answer::Kind::Witness && (rules.Allow(m_Patterns, answer.text) == m_Sentence.may ||
                                                   !m_Patterns.Matches(m_Place.pattern, answer.text))) {
        answer = {Answer::Kind::Unknown, "the module does not confirm " + Quoted(answer.text)};
      }
    }
    return known->second;
  }

private:
  /// Whether a witness was found.
  bool Ask(const Question& question, Answer& answer) {
    Answer found = m_Solver.Find(question);
    if (found.kind != Answer::Kind::None) {
      answer = std::move(found);
    }
    return answer.kind == Answer::Kind::Witness;
  }

  void FindAllowed(const Rules& rules, Answer& answer) {
    const std::vector<Question::Term> denies = TermsOf(rules.denies);
    if (!rules.in_doubt) {
      static_cast<void>(std::any_of(rules.allows.begin(), rules.allows.end(), [&](PatternNumber allow) {
        return Ask({{m_Place, {allow, false}}, denies}, answer);
      }));
    }
  }

  void FindRefused(const Rules& rules, Answer& answer) {
    if (Ask({{m_Place}, rules.in_doubt ? std::vector<Question::Term>() : TermsOf(rules.allows)}, answer)) {
      return;
    }
    static_cast<void>(std::any_of(rules.denies.begin(), rules.denies.end(), [&](PatternNumber deny) {
      return Ask({{m_Place, {deny, false}}, {}}, answer);
    }));
  }

  const Sentence& m_Sentence;
  const Patterns& m_Patterns;
  Question::Term m_Place;
  Solver& m_Solver;
  std::map<Rules, Answer> m_Known;
};

bool SpeaksOf(const Sentence& sentence, const UserClass& users) {
  const bool member = std::binary_search(users.groups.begin(), users.groups.end(), sentence.name);
  return sentence.subject == Sentence::Subject::Members  ? member
         : sentence.subject == Sentence::Subject::Others ? !member
                                                         : true;
}

void RequireSubject(const Sentence& sentence, const AccessRules& policy) {
  using Subject = Sentence::Subject;
  const bool names_group = sentence.subject == Subject::Members || sentence.subject == Subject::Others;
  if (names_group && !policy.HasGroup(sentence.name)) {
    throw Failure(Failure::Kind::Input, Quoted(sentence.text) + ": there is no group " + Quoted(sentence.name));
  }
  if (sentence.subject == Subject::User && policy.Users().count(sentence.name) == 0) {
    throw Failure(Failure::Kind::Input, Quoted(sentence.text) + ": there is no user " + Quoted(sentence.name));
  }
}

/// The users that the sentence speaks of, class by class.
std::vector<UserClass> Subjects(const Sentence& sentence, const AccessRules& policy) {
  if (sentence.subject == Sentence::Subject::User) {
    return {{policy.Users().at(sentence.name), {sentence.name}}};
  }
  std::vector<UserClass> classes = ClassesOf(policy);
  const auto others = [&sentence](const UserClass& users) { return !SpeaksOf(sentence, users); };
  classes.erase(std::remove_if(classes.begin(), classes.end(), others), classes.end());
  return classes;
}

} // namespace

Verdict Prove(const Sentence& sentence, const AccessRules& policy, Patterns& patterns, Solver& solver) {
  RequireSubject(sentence, policy);
  Prover prover(sentence, patterns, solver);
  if (patterns.IsCostly(patterns.Add(sentence.place))) {
    throw Failure(Failure::Kind::Input, Quoted(sentence.text) + ": the pattern is too costly to match");
  }
  Verdict verdict;
  const std::vector<UserClass> classes = Subjects(sentence, policy);
  for (const UserClass& users : classes) {
    verdict.users += users.users.size();
  }
  for (const UserClass& users : classes) {
    for (const Perenna::Method_t method : sentence.methods) {
      const Answer& example = prover.FindExample(policy.RulesOf(users.groups, method));
      if (example.kind == Answer::Kind::Witness) {
        return {Verdict::Kind::False, verdict.users, users.users.front(), method, example.text, {}};
      }
      if (example.kind == Answer::Kind::Unknown && verdict.kind == Verdict::Kind::True) {
        verdict = {Verdict::Kind::Unknown, verdict.users, users.users.front(), method, {}, example.text};
      }
    }
  }
  return verdict;
}

Json Verdict::ToJson(const Sentence& sentence) const {
  Json example;
  if (kind == Kind::False) {
    example = {{"user_id", JsonText(user)}, {"method", MethodToString(method)}, {"target", target}};
  }
  return {{"sentence", JsonText(sentence.text)},
          {"holds", kind == Kind::Unknown ? Json() : Json(kind == Kind::True)},
          {"users", users},
          {"counter_example", example},
          {"why", kind == Kind::Unknown ? Json(why) : Json()}};
}

} // namespace AccessDirectory
