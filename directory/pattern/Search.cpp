#include "directory/pattern/Search.h"

#include <algorithm>

#include "directory/text/Text.h"

namespace AccessDirectory {

namespace {

constexpr int MaximumGuesses = 50; // targets that are tried and left out one by one, where a pattern has no automaton

std::string Path(const std::string& target) {
  return target.substr(0, target.find('?'));
}

} // namespace

std::vector<Question::Term> TermsOf(const std::vector<PatternNumber>& patterns) {
  std::vector<Question::Term> terms(patterns.size());
  std::transform(patterns.begin(), patterns.end(), terms.begin(), [](PatternNumber pattern) {
    return Question::Term{pattern, false};
  });
  return terms;
}

Search::Search(const Patterns& patterns, const TargetRules& rules, std::vector<bool> skips)
    : m_Patterns(patterns), m_Rules(rules), m_Skips(std::move(skips)), m_Targets(TargetLanguage(rules)) {}

const Search::Language& Search::LanguageOf(Question::Term term) {
  const bool on_path = term.on_path && m_Rules.with_query;
  auto& languages = on_path ? m_PathLanguages : m_Languages;
  if (const auto known = languages.find(term.pattern); known != languages.end()) {
    return known->second;
  }
  Language language;
  const std::string quoted = '"' + Shown(m_Patterns.Text(term.pattern), Backslash::Kept) + '"';
  if (term.pattern < m_Skips.size() && m_Skips[term.pattern]) {
    language.obstacle = "the pattern " + quoted + " has too large an automaton";
  } else {
    BeginTranslation(term.pattern);
    const Translation translation = Translate(m_Patterns.Text(term.pattern));
    if (!translation.language) {
      language.obstacle = "the pattern " + quoted + " holds " + translation.obstacle;
    } else if (on_path) {
      const Automaton paths = TargetLanguage({false, m_Rules.allows, nullptr}) & *translation.language;
      language.targets = WithAnyQuery(paths).Minimal();
    } else {
      language.targets = (m_Targets & *translation.language).Minimal();
    }
    EndTranslation();
  }
  return languages.emplace(term.pattern, std::move(language)).first->second;
}

bool Search::Matches(Question::Term term, const std::string& target) const {
  return m_Patterns.Matches(term.pattern, term.on_path ? Path(target) : target);
}

Answer Search::Find(const Question& question) {
  std::optional<Automaton> rest;
  std::string obstacle;
  for (const Question::Term term : question.within) {
    const Language& language = LanguageOf(term);
    if (!language.targets) {
      obstacle = language.obstacle;
    } else {
      rest = rest ? (*rest & *language.targets).Minimal() : *language.targets;
    }
  }
  rest = rest ? rest : m_Targets;
  // What is excluded is taken away only when a target shows that it matters: mostly nothing of it does.
  std::string target;
  for (int guesses = 0; rest->Example(target);) {
    const auto matches = [&](Question::Term term) { return Matches(term, target); };
    const auto excluded = std::find_if(question.without.begin(), question.without.end(), matches);
    const bool included = std::all_of(question.within.begin(), question.within.end(), matches);
    const bool admitted = !m_Rules.admits || m_Rules.admits(target);
    if (included && admitted && excluded == question.without.end()) {
      return {Answer::Kind::Witness, target};
    }
    if (included && admitted) {
      const Language& language = LanguageOf(*excluded);
      if (language.targets) {
        rest = (*rest - *language.targets).Minimal();
        continue;
      }
      obstacle = language.obstacle;
    }
    if (++guesses > MaximumGuesses) {
      return {Answer::Kind::Unknown,
              obstacle.empty() ? "no target that was found is one that the host admits" : obstacle};
    }
    rest = *rest - Automaton::Text(target);
  }
  return {Answer::Kind::None, {}};
}

} // namespace AccessDirectory
