#include "Tree.h"

namespace Perenna::Pattern {

CharacterSet Tree::Characters(const Node& node) const {
  if (node.kind == Kind::Literal) {
    return CharacterSet().set(node.byte);
  }
  return node.kind == Kind::Set ? m_sets[node.number] : CharacterSet();
}

std::vector<NodeIndex> Tree::TopAlternatives() const {
  const Node& root = m_nodes[m_root];
  if (root.kind != Kind::Alternatives) {
    return {m_root};
  }
  std::vector<NodeIndex> alternatives;
  for (NodeIndex child = root.first_child; child != NoNode; child = m_nodes[child].next_sibling) {
    alternatives.push_back(child);
  }
  return alternatives;
}

std::string Tree::LiteralBeginning() const {
  if (m_fault != Fault::None || m_nodes[m_root].kind != Kind::Concatenation) {
    return {};
  }
  NodeIndex index = m_nodes[m_root].first_child;
  if (m_nodes[index].kind != Kind::Assertion || m_nodes[index].assertion != Assertion::LineBegin) {
    return {};
  }
  std::string beginning;
  while ((index = m_nodes[index].next_sibling) != NoNode && m_nodes[index].kind == Kind::Literal) {
    beginning += static_cast<char>(m_nodes[index].byte);
  }
  return beginning;
}

} // namespace Perenna::Pattern
