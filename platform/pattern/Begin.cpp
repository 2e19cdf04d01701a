#include "Begin.h"

#include "Cost.h"
#include "Tree.h"

namespace Perenna::Pattern {

namespace {

constexpr std::string_view Special = ".[]()*+?{}|^$\\";
constexpr std::string_view Repeats = "*+?{";

/// Whether the literal text behind a leading "^" differs from the text, with no look at what stands behind it.
bool Differs(std::string_view pattern, std::string_view text) {
  if (pattern.empty() || pattern.front() != '^') {
    return false;
  }
  std::size_t compared = 0;
  for (std::size_t at = 1; at < pattern.size(); ++at) {
    if (pattern[at] == '\\') {
      if (++at == pattern.size() || Special.find(pattern[at]) == std::string_view::npos) {
        return false; // an escaped letter may be more than itself
      }
    } else if (Special.find(pattern[at]) != std::string_view::npos) {
      return false;
    }
    if (at + 1 < pattern.size() && Repeats.find(pattern[at + 1]) != std::string_view::npos) {
      return false;
    }
    if (compared == text.size() || pattern[at] != text[compared++]) {
      return true;
    }
  }
  return false;
}

} // namespace

bool CannotBegin(std::string_view pattern, std::string_view text) {
  pattern = pattern.substr(0, pattern.find('\0'));
  if (!Differs(pattern, text) || text.find('\n') != std::string_view::npos) {
    return false;
  }
  const Judgement judgement = Judge(pattern);
  if (judgement.refusal != nullptr || judgement.malformed) {
    return false;
  }
  const Tree tree = Tree::Read(pattern); // the judgement of a plain pattern does not tell whether it is malformed
  return tree.GetFault() == Fault::None && tree[tree.Root()].kind != Kind::Alternatives;
}

} // namespace Perenna::Pattern
