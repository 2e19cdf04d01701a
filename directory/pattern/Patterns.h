#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "PN_Regex.h"

namespace AccessDirectory {

using PatternNumber = std::uint32_t;

/// Patterns, each once, and what the module finds with them. One thread uses an object and its copies, which share what
/// they have compiled.
class Patterns {
public:
  /// The number of the pattern, which counts up to its first NUL. The same for the same text.
  PatternNumber Add(const std::string& text);

  std::size_t Count() const noexcept { return m_Patterns.size(); }
  const std::string& Text(PatternNumber number) const { return m_Patterns[number].text; }

  /// Whether the module refuses to match it for its cost: decisions that it takes part in are refusals.
  bool IsCostly(PatternNumber number) const;
  /// Whether the module finds the pattern in the text. Throws std::bad_alloc when memory runs out.
  bool Matches(PatternNumber number, const std::string& text) const;

  /// What each text begins with that the pattern matches.
  const std::string& Beginning(PatternNumber number) const { return m_Patterns[number].beginning; }
  /// Whether what the two begin with shows that no text matches both.
  bool AreApart(PatternNumber left, PatternNumber right) const;
  /// Whether what the two begin with shows that `outer` matches whatever `inner` does: it asks for a beginning alone.
  bool IsPlainlyWithin(PatternNumber inner, PatternNumber outer) const;

private:
  struct Pattern {
    std::string text;
    std::string beginning; ///< of each text that it matches
    bool is_beginning;     ///< it matches each text of this beginning
  };

  const Perenna::RegularExpression& Compiled(PatternNumber number) const;

  std::vector<Pattern> m_Patterns;
  mutable std::vector<std::shared_ptr<const Perenna::RegularExpression>> m_Compiled; // when first used
  std::unordered_map<std::string, PatternNumber> m_Numbers;
};

/// A pattern that finds just this text in targets: everything in it stands for itself.
std::string Literally(std::string_view text);

} // namespace AccessDirectory
