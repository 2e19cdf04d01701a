#include "directory/lint/pattern/PatternQueries.h"

#include <algorithm>
#include <vector>

#include "platform/pattern/Tree.h"

namespace AccessDirectory {

namespace {

using Perenna::Pattern::Assertion;
using Perenna::Pattern::Kind;

constexpr const char* PathEnd = "([?]|$)";
constexpr std::size_t FewBytes = 16; // of a list that says what it holds, not what it leaves out

} // namespace

PatternQueries ReadPatternQueries(const std::string& pattern) {
  const auto tree = Perenna::Pattern::Tree::Read(pattern);
  bool passes = tree.LiteralBeginning().empty(); // begins anywhere
  bool names = false;
  bool is_odd = false; // what is matched may depend on more than where it is
  std::vector<std::size_t> ends;
  for (Perenna::Pattern::NodeIndex index = 0; index < tree.Size(); ++index) {
    const auto& node = tree[index];
    if ((node.kind == Kind::Literal || node.kind == Kind::Set) && tree.Characters(node)['?']) {
      passes = true;
      names = names || tree.Characters(node).count() <= FewBytes;
    } else if (node.kind == Kind::Assertion && node.assertion == Assertion::LineEnd) {
      ends.push_back(node.span.begin);
    } else if (node.kind == Kind::Reference ||
               (node.kind == Kind::Assertion && node.assertion != Assertion::LineBegin)) {
      passes = true;
      is_odd = true;
    }
  }
  PatternQueries queries;
  queries.may_reach = passes && !names;
  queries.may_be_evaded = !ends.empty() || is_odd;
  // With one "$", a match that ends with the path goes on to the "?" that follows; repeated, it might have to go on
  // twice.
  queries.is_better = ends.size() == 1 && !is_odd;
  for (Perenna::Pattern::NodeIndex index = 0; index < tree.Size() && queries.is_better; ++index) {
    const auto& node = tree[index];
    queries.is_better = node.kind != Kind::Repetition || ends[0] < node.span.begin || node.span.end <= ends[0];
  }
  std::sort(ends.rbegin(), ends.rend());
  queries.better = ends.empty() ? "" : pattern;
  for (const std::size_t end : ends) {
    queries.better.replace(end, 1, PathEnd);
  }
  return queries;
}

} // namespace AccessDirectory
