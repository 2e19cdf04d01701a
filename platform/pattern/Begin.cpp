#include "Begin.h"

#include "Cost.h"
#include "Tree.h"

namespace Perenna::Pattern {

namespace {

constexpr std::string_view Special = ".[]()*+?{}|^$\\";
constexpr std::string_view Repeats = "*+?{";

/// Takes the literal text behind a leading "^" for as long as it is the text's, with no look at what stands behind it.
Beginning CompareLiteral(std::string_view pattern, std::string_view text) {
  Beginning beginning;
  if (pattern.empty() || pattern.front() != '^') {
    return beginning;
  }
  for (std::size_t at = 1; at < pattern.size(); ++at) {
    if (pattern[at] == '\\') {
      if (++at == pattern.size() || Special.find(pattern[at]) == std::string_view::npos) {
        return beginning; // an escaped letter may be more than itself
      }
    } else if (Special.find(pattern[at]) != std::string_view::npos) {
      return beginning;
    }
    if (at + 1 < pattern.size() && Repeats.find(pattern[at + 1]) != std::string_view::npos) {
      return beginning;
    }
    if (beginning.text_bytes == text.size() || pattern[at] != text[beginning.text_bytes]) {
      beginning.differs = true;
      return beginning;
    }
    ++beginning.text_bytes;
    beginning.pattern_bytes = at + 1;
  }
  return beginning;
}

/// Whether what stands behind the leading "^" could tell that the text before it is gone.
bool LooksBack(const Tree& tree) {
  int line_begins = 0;
  for (NodeIndex index = 0; index < tree.Size(); ++index) {
    const Node& node = tree[index];
    if (node.kind == Kind::Assertion && node.assertion == Assertion::LineBegin) {
      ++line_begins;
    } else if (node.kind == Kind::Assertion && node.assertion != Assertion::LineEnd) {
      return true;
    }
  }
  return line_begins != 1;
}

} // namespace

Beginning CompareBeginning(std::string_view pattern, std::string_view text) {
  Beginning beginning = CompareLiteral(pattern, text);
  if ((!beginning.differs && beginning.pattern_bytes == 0) || text.find('\n') != std::string_view::npos) {
    return {};
  }
  const Judgement judgement = Judge(pattern);
  if (judgement.refusal != nullptr || judgement.malformed) {
    return {};
  }
  const Tree tree = Tree::Read(pattern); // the judgement of a plain pattern does not tell whether it is malformed
  if (tree.GetFault() != Fault::None || tree[tree.Root()].kind == Kind::Alternatives ||
      (!beginning.differs && LooksBack(tree))) {
    return {};
  }
  return beginning;
}

} // namespace Perenna::Pattern
