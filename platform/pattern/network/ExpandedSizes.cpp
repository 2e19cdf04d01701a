#include "ExpandedSizes.h"

#include <algorithm>

namespace Perenna::Pattern {

namespace {

std::uint32_t Capped(std::uint64_t size) {
  return static_cast<std::uint32_t>(std::min<std::uint64_t>(size, MaximumElements + 1));
}

std::uint64_t ExpandedSize(const Node& node, std::uint64_t children, std::uint64_t count) {
  switch (node.kind) {
  case Kind::Empty:
  case Kind::Concatenation:
    return children;
  case Kind::Group:
    return children + 2;
  case Kind::Alternatives:
    return children + count - 1;
  case Kind::Repetition:
    return node.maximum == Unbounded ? children * (node.minimum + 1U) + 1
                                     : children * node.maximum + node.maximum - node.minimum;
  case Kind::Assertion:
    return 3; // a word boundary is a choice of two
  default:
    return 1;
  }
}

} // namespace

std::vector<std::uint32_t> ExpandedSizes(const Tree& tree) {
  std::vector<std::uint32_t> sizes(tree.Size());
  for (NodeIndex index = 0; index < tree.Size(); ++index) {
    std::uint64_t children = 0;
    std::uint64_t count = 0;
    for (NodeIndex child = tree[index].first_child; child != NoNode; child = tree[child].next_sibling) {
      children += sizes[child];
      ++count;
    }
    sizes[index] = Capped(ExpandedSize(tree[index], children, count));
  }
  return sizes;
}

} // namespace Perenna::Pattern
