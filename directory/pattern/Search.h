#pragma once

#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "directory/pattern/Patterns.h"
#include "directory/pattern/Targets.h"
#include "directory/pattern/Translation.h"

namespace AccessDirectory {

/// Something that is looked for among all targets: one that all of `within` match and none of `without`.
struct Question {
  /// A pattern, tried on the target or on its path alone.
  struct Term {
    PatternNumber pattern = 0;
    bool on_path = false;
  };

  std::vector<Term> within;
  std::vector<Term> without;
};

/// The patterns, each tried on the whole target.
std::vector<Question::Term> TermsOf(const std::vector<PatternNumber>& patterns);

struct Answer {
  enum class Kind : unsigned char {
    None,    ///< there is no such target
    Witness, ///< there is
    Unknown  ///< it could not be found out
  };

  Kind kind = Kind::Unknown;
  std::string text; ///< the target; of what is unknown, why

  bool operator==(const Answer& other) const { return kind == other.kind && text == other.text; }
};

/// Looks for targets with automata, and tries each that it finds with the module's own matching. Takes as much time and
/// memory as it takes: `Solver` keeps it within bounds.
class Search {
public:
  /// Both outlive the object; patterns may be added meanwhile. `skips`: patterns that are not to be translated.
  Search(const Patterns& patterns, const TargetRules& rules, std::vector<bool> skips);
  virtual ~Search() = default;
  Search(const Search&) = delete;
  Search& operator=(const Search&) = delete;

  /// Throws std::bad_alloc when memory runs out, of libfa too.
  Answer Find(const Question& question);

protected:
  // Called before each pattern is translated, and when it is.
  virtual void BeginTranslation(PatternNumber /*pattern*/) {}
  virtual void EndTranslation() {}

private:
  struct Language {
    std::optional<Automaton> targets; ///< that match
    std::string obstacle;
  };

  const Language& LanguageOf(Question::Term term);
  bool Matches(Question::Term term, const std::string& target) const;

  const Patterns& m_Patterns;
  const TargetRules& m_Rules;
  std::vector<bool> m_Skips;
  Automaton m_Targets;
  std::unordered_map<PatternNumber, Language> m_Languages;
  std::unordered_map<PatternNumber, Language> m_PathLanguages;
};

} // namespace AccessDirectory
