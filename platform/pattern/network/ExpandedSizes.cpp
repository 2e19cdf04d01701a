#include "ExpandedSizes.h"

#include <algorithm>

namespace Perenna::Pattern {

namespace {

std::uint32_t Capped(std::uint64_t size) {
  return static_cast<std::uint32_t>(std::min<std::uint64_t>(size, MaximumElements + 1));
}

} // namespace

std::vector<std::uint32_t> ExpandedSizes(const Tree& tree) {
  std::vector<std::uint32_t> sizes(tree.Size());
  for (NodeIndex index = 0; index < tree.Size(); ++index) {
    const Node& node = tree[index];
    std::uint64_t children = 0;
    std::uint64_t count = 0;
    for (NodeIndex child = node.first_child; child != NoNode; child = tree[child].next_sibling) {
      children += sizes[child];
      ++count;
    }
    switch (node.kind) {
    case Kind::Empty:
    case Kind::Concatenation:
      sizes[index] = Capped(children);
      break;
    case Kind::Group:
      sizes[index] = Capped(children + 2);
      break;
    case Kind::Alternatives:
      sizes[index] = Capped(children + count - 1);
      break;
    case Kind::Repetition:
      if (node.maximum == Unbounded) {
        sizes[index] = Capped(children * (node.minimum + 1U) + 1);
      } else {
        sizes[index] = Capped(children * node.maximum + node.maximum - node.minimum);
      }
      break;
    case Kind::Assertion:
      sizes[index] = 3; // a word boundary is a choice of two
      break;
    default:
      sizes[index] = 1;
    }
  }
  return sizes;
}

} // namespace Perenna::Pattern
