#include "References.h"

#include <algorithm>

#include "platform/pattern/network/ExpandedSizes.h"

namespace Perenna::Pattern {

namespace {

constexpr std::size_t MaximumReferences = 4;
constexpr std::size_t MaximumReferenceElements = 500;
/// In how many ways what stands before the last reference may match at one place.
constexpr std::size_t MaximumWays = 64;

class ReferenceJudge {
public:
  explicit ReferenceJudge(const Tree& tree) : m_tree(tree), m_parents(tree.Size(), NoNode) {
    for (NodeIndex index = 0; index < tree.Size(); ++index) {
      for (NodeIndex child = tree[index].first_child; child != NoNode; child = tree[child].next_sibling) {
        m_parents[child] = index;
      }
      if (tree[index].kind == Kind::Reference) {
        m_references.push_back(index);
      }
    }
  }

  const char* Judge() const {
    if (m_references.empty()) {
      return nullptr;
    }
    if (m_references.size() > MaximumReferences) {
      return "it has more than four back-references";
    }
    if (ExpandedSizes(m_tree)[m_tree.Root()] > MaximumReferenceElements) {
      return "it is too long for a pattern with back-references";
    }
    for (NodeIndex index = 0; index < m_tree.Size(); ++index) {
      const Node& node = m_tree[index];
      const bool named = node.kind == Kind::Group &&
                         std::any_of(m_references.begin(), m_references.end(),
                                     [&](NodeIndex reference) { return m_tree[reference].number == node.number; });
      if ((named || node.kind == Kind::Reference) && !StandsAlone(index)) {
        return "a back-reference or the group that it names is repeated, or stands beside an empty alternative";
      }
    }
    return WaysToReferences() > MaximumWays
               ? "what a back-reference repeats can begin or end at too many places: let characters stand before and "
                 "behind it that it does not match"
               : nullptr;
  }

private:
  bool StandsAlone(NodeIndex index) const {
    while ((index = m_parents[index]) != NoNode) {
      if (m_tree[index].kind == Kind::Repetition) {
        return false;
      }
      for (NodeIndex child = m_tree[index].first_child; child != NoNode; child = m_tree[child].next_sibling) {
        if (m_tree[index].kind == Kind::Alternatives && m_tree[child].kind == Kind::Empty) {
          return false;
        }
      }
    }
    return true;
  }

  std::size_t WaysToReferences() const {
    const std::uint32_t last = m_tree[m_references.back()].span.begin;
    std::size_t ways = 1;
    for (NodeIndex index = 0; index < m_tree.Size() && ways <= MaximumWays; ++index) {
      const Node& node = m_tree[index];
      if (node.span.begin >= last) {
        continue;
      }
      if (node.kind == Kind::Repetition && node.maximum != node.minimum) {
        ways *= StandsAtOnePlace(index)     ? 1
                : node.maximum == Unbounded ? MaximumWays + 1
                                            : node.maximum - node.minimum + 1;
      } else if (node.kind == Kind::Alternatives) {
        std::size_t alternatives = 0;
        for (NodeIndex child = node.first_child; child != NoNode; child = m_tree[child].next_sibling) {
          ++alternatives;
        }
        ways *= alternatives;
      }
    }
    return ways;
  }

  /// Whether a text has one place for a repetition: what stands before it and behind it is what it does not match.
  bool StandsAtOnePlace(NodeIndex repetition) const {
    CharacterSet inside;
    std::vector<NodeIndex> pending{m_tree[repetition].first_child};
    while (!pending.empty()) {
      const NodeIndex index = pending.back();
      pending.pop_back();
      const Node& node = m_tree[index];
      if (node.kind == Kind::Repetition || node.kind == Kind::Reference || node.kind == Kind::Alternatives) {
        return false;
      }
      inside |= m_tree.Characters(node);
      for (NodeIndex child = node.first_child; child != NoNode; child = m_tree[child].next_sibling) {
        pending.push_back(child);
      }
    }
    const Node* const before = Neighbour(repetition, true);
    const Node* const behind = Neighbour(repetition, false);
    return before != nullptr && behind != nullptr && (IsLineBegin(*before) || IsApart(*before, inside)) &&
           IsApart(*behind, inside);
  }

  static bool IsLineBegin(const Node& node) {
    return node.kind == Kind::Assertion && node.assertion == Assertion::LineBegin;
  }

  bool IsApart(const Node& node, const CharacterSet& set) const {
    const CharacterSet characters = m_tree.Characters(node);
    return characters.any() && (characters & set).none();
  }

  /// What stands right before a part or behind it, in every match; null when that differs.
  const Node* Neighbour(NodeIndex part, bool before) const {
    NodeIndex neighbour = NoNode;
    for (NodeIndex place = part; neighbour == NoNode; place = m_parents[place]) {
      const NodeIndex parent = m_parents[place];
      if (parent == NoNode || m_tree[parent].kind == Kind::Repetition) {
        return nullptr;
      }
      if (m_tree[parent].kind == Kind::Concatenation) {
        neighbour = before ? Before(place) : m_tree[place].next_sibling;
      }
    }
    while (m_tree[neighbour].kind == Kind::Group || m_tree[neighbour].kind == Kind::Concatenation) {
      neighbour = m_tree[neighbour].first_child;
      while (before && m_tree[neighbour].next_sibling != NoNode) {
        neighbour = m_tree[neighbour].next_sibling;
      }
    }
    return &m_tree[neighbour];
  }

  NodeIndex Before(NodeIndex part) const {
    NodeIndex before = NoNode;
    for (NodeIndex child = m_tree[m_parents[part]].first_child; child != part; child = m_tree[child].next_sibling) {
      before = child;
    }
    return before;
  }

  const Tree& m_tree;
  std::vector<NodeIndex> m_parents;
  std::vector<NodeIndex> m_references; // in the order of the text
};

} // namespace

const char* JudgeReferences(const Tree& tree) {
  return ReferenceJudge(tree).Judge();
}

} // namespace Perenna::Pattern
