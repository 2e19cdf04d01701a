#include "NetworkBuilder.h"

#include <algorithm>
#include <utility>

namespace Perenna::Pattern {

namespace {

bool RepeatsNothing(const Tree& tree, NodeIndex index) {
  while (tree[index].kind == Kind::Repetition) {
    if (tree[index].maximum == 0) {
      return true;
    }
    index = tree[index].first_child;
  }
  return false;
}

/// The node that the C library has for a part once what is written around it without a meaning is gone.
NodeIndex Bare(const Tree& tree, NodeIndex index) {
  const Node& node = tree[index];
  if (node.kind == Kind::Repetition && node.minimum == 1 && node.maximum == 1) {
    return Bare(tree, node.first_child);
  }
  if (node.kind == Kind::Concatenation) {
    NodeIndex only = NoNode;
    for (NodeIndex child = node.first_child; child != NoNode; child = tree[child].next_sibling) {
      if (RepeatsNothing(tree, child)) {
        continue;
      }
      if (only != NoNode) {
        return index;
      }
      only = child;
    }
    return only == NoNode ? index : Bare(tree, only);
  }
  return index;
}

/// What a group holds. A group that is all another one holds is left out.
NodeIndex BodyOf(const Tree& tree, const Node& group) {
  const Node& inner = tree[Bare(tree, group.first_child)];
  return inner.kind == Kind::Group ? inner.first_child : group.first_child;
}

std::uint8_t ConditionsOf(Assertion assertion) {
  switch (assertion) {
  case Assertion::LineBegin:
    return Condition::AfterNewline;
  case Assertion::LineEnd:
    return Condition::BeforeNewline;
  case Assertion::TextBegin:
    return Condition::AtTextBegin;
  case Assertion::TextEnd:
    return Condition::AtTextEnd;
  case Assertion::WordBegin:
    return Condition::AfterNoWord | Condition::BeforeWord;
  default:
    return Condition::AfterWord | Condition::BeforeNoWord;
  }
}

} // namespace

/// From the end to the start, so that what follows a node is known when the node is made. Turned round, the nodes have
/// the C library's order: it numbers them after a walk over the pattern from left to right, children first.
std::uint32_t NetworkBuilder::Build() {
  Network::Node end;
  end.consumes = true;
  m_nodes.push_back(end);
  const std::uint32_t start = Build(m_tree.Root(), 0);
  const auto last = static_cast<std::uint32_t>(m_nodes.size() - 1);
  std::reverse(m_nodes.begin(), m_nodes.end());
  for (Network::Node& node : m_nodes) {
    for (std::uint32_t& next : node.next) {
      next = next == NoNode ? NoNode : last - next;
    }
    // Ways are a set, in the order of the nodes that they lead to.
    if (node.ways == 2 && node.next[0] >= node.next[1]) {
      std::swap(node.next[0], node.next[1]);
      node.ways = node.next[0] == node.next[1] ? 1 : 2;
    }
  }
  return last - start;
}

std::uint32_t NetworkBuilder::Add(std::uint8_t ways, std::uint32_t first, std::uint32_t second) {
  Network::Node node;
  node.ways = ways;
  node.next = {first, second};
  node.repeated = m_repeating;
  m_nodes.push_back(node);
  return static_cast<std::uint32_t>(m_nodes.size() - 1);
}

/// The begin or the end of a group, which the C library makes when repetitions are written out already.
std::uint32_t NetworkBuilder::AddBoundary(std::uint32_t next) {
  const std::uint32_t node = Add(1, next);
  m_nodes[node].repeated = false;
  return node;
}

std::uint32_t NetworkBuilder::AddAssertion(std::uint8_t conditions, std::uint32_t next) {
  const std::uint32_t node = Add(1, next);
  m_nodes[node].conditions = conditions;
  return node;
}

/// The first node of the part, which goes on to `next`. Recurses as deep as the tree.
std::uint32_t NetworkBuilder::Build(NodeIndex index, std::uint32_t next) {
  const Node& part = m_tree[index];
  switch (part.kind) {
  case Kind::Empty:
    return next;
  case Kind::Assertion:
    return BuildAssertion(part.assertion, next);
  case Kind::Group:
    return AddBoundary(Build(BodyOf(m_tree, part), AddBoundary(next)));
  case Kind::Concatenation: {
    const auto children = Children(part);
    for (auto child = children.rbegin(); child != children.rend(); ++child) {
      next = Build(*child, next);
    }
    return next;
  }
  case Kind::Alternatives:
    return BuildAlternatives(Children(part), next);
  case Kind::Repetition:
    return RepeatsNothing(m_tree, index) ? next : BuildRepetition(part, next);
  default: {
    // A reference may match the empty text: it is passed as well as matched.
    const std::uint32_t node = Add(part.kind == Kind::Reference ? 1 : 0, next);
    m_nodes[node].consumes = true;
    m_nodes[node].leaf = index;
    return node;
  }
  }
}

std::vector<NodeIndex> NetworkBuilder::Children(const Node& part) const {
  std::vector<NodeIndex> children;
  for (NodeIndex child = part.first_child; child != NoNode; child = m_tree[child].next_sibling) {
    children.push_back(child);
  }
  return children;
}

std::uint32_t NetworkBuilder::BuildAssertion(Assertion assertion, std::uint32_t next) {
  using namespace Condition;
  if (assertion != Assertion::WordBoundary && assertion != Assertion::NotWordBoundary) {
    return AddAssertion(ConditionsOf(assertion), next);
  }
  const bool boundary = assertion == Assertion::WordBoundary;
  const std::uint32_t choice = Add(2);
  const std::uint32_t second = AddAssertion(boundary ? AfterWord | BeforeNoWord : AfterNoWord | BeforeNoWord, next);
  const std::uint32_t first = AddAssertion(boundary ? AfterNoWord | BeforeWord : AfterWord | BeforeWord, next);
  m_nodes[choice].next = {first, second};
  return choice;
}

std::uint32_t NetworkBuilder::BuildAlternatives(const std::vector<NodeIndex>& children, std::uint32_t next) {
  // A choice between all before the last and the last, and so on.
  std::uint32_t outer = NoNode;
  std::uint32_t result = NoNode;
  for (std::size_t child = children.size() - 1; child > 0; --child) {
    const std::uint32_t choice = Add(2);
    (outer == NoNode ? result : m_nodes[outer].next[0]) = choice;
    const std::uint32_t last = Build(children[child], next);
    m_nodes[choice].next[1] = last;
    outer = choice;
  }
  const std::uint32_t first = Build(children[0], next);
  m_nodes[outer].next[0] = first;
  return result;
}

/// One of the parts that a repetition writes out. The C library does not let what stands behind an assertion inherit
/// its conditions in any but the first.
std::uint32_t NetworkBuilder::BuildInstance(NodeIndex index, std::uint32_t next, bool first) {
  const bool before = m_repeating;
  m_repeating = before || !first;
  const std::uint32_t start = Build(index, next);
  m_repeating = before;
  return start;
}

std::uint32_t NetworkBuilder::BuildRepetition(const Node& part, std::uint32_t next) {
  if (part.maximum == Unbounded) {
    const std::uint32_t loop = Add(2, NoNode, next);
    const std::uint32_t body = BuildInstance(part.first_child, loop, part.minimum == 0);
    m_nodes[loop].next[0] = body;
    next = loop;
  } else {
    std::uint32_t outer = NoNode;
    std::uint32_t result = next;
    for (std::uint32_t left = part.maximum; left > part.minimum; --left) {
      const std::uint32_t choice = Add(2, NoNode, next);
      (outer == NoNode ? result : m_nodes[outer].next[0]) = choice;
      next = BuildInstance(part.first_child, next, left == 1);
      outer = choice;
    }
    if (outer != NoNode) {
      m_nodes[outer].next[0] = next;
      next = result;
    }
  }
  for (std::uint32_t left = part.minimum; left > 0; --left) {
    next = BuildInstance(part.first_child, next, left == 1);
  }
  return next;
}

} // namespace Perenna::Pattern
