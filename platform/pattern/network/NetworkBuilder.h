#pragma once

#include <cstdint>
#include <vector>

#include "Network.h"
#include "platform/pattern/Tree.h"

namespace Perenna::Pattern {

/// Makes a network's nodes of a tree, before those that are reachable are listed.
class NetworkBuilder {
public:
  NetworkBuilder(const Tree& tree, std::vector<Network::Node>& nodes) : m_tree(tree), m_nodes(nodes) {}

  /// The index of the first node.
  std::uint32_t Build();

private:
  std::uint32_t Add(std::uint8_t ways, std::uint32_t first = NoNode, std::uint32_t second = NoNode);
  std::uint32_t AddBoundary(std::uint32_t next);
  std::uint32_t AddAssertion(std::uint8_t conditions, std::uint32_t next);
  std::uint32_t Build(NodeIndex index, std::uint32_t next);
  std::vector<NodeIndex> Children(const Node& part) const;
  std::uint32_t BuildAssertion(Assertion assertion, std::uint32_t next);
  std::uint32_t BuildAlternatives(const std::vector<NodeIndex>& children, std::uint32_t next);
  std::uint32_t BuildInstance(NodeIndex index, std::uint32_t next, bool first);
  std::uint32_t BuildRepetition(const Node& part, std::uint32_t next);

  const Tree& m_tree;
  std::vector<Network::Node>& m_nodes;
  bool m_repeating = false;
};

} // namespace Perenna::Pattern
