#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/pattern/Tree.h"

namespace Perenna::Pattern {

/// What must hold at the place where a node stands, before and after it. A node behind an assertion inherits its
/// conditions.
namespace Condition {
enum : std::uint8_t {
  AfterWord = 1,
  AfterNoWord = 2,
  AfterNewline = 4,
  AtTextBegin = 8,
  BeforeWord = 16,
  BeforeNoWord = 32,
  BeforeNewline = 64,
  AtTextEnd = 128
};
} // namespace Condition

/// The network that the C library makes of a pattern: a node for each byte to match, the others passed without
/// matching one. It keeps for each node the list of all nodes that can be reached so, and copies what stands behind an
/// assertion, for each assertion anew. Both can grow without bounds on short patterns: this class follows what it does
/// and gives up when it grows too much. The nodes have the C library's order.
class Network {
public:
  struct Node {
    std::array<std::uint32_t, 2> next{NoNode, NoNode};
    std::uint32_t origin = NoNode; ///< of a copy
    NodeIndex leaf = NoNode;       ///< the tree's node of a byte to match
    std::uint32_t listed = 0;      ///< nodes that can be reached without matching a byte, with this one
    std::uint32_t lowest = 0;      ///< of those `listed`
    std::uint32_t highest = 0;     ///< likewise
    std::uint8_t ways = 0;         ///< how many of `next`
    std::uint8_t conditions = 0;
    bool consumes = false;
    bool repeated = false;         ///< a copy, also of what a repetition writes out but for the bounds of groups
    bool lists_conditions = false; ///< whether any of those `listed` has conditions
  };

  /// `tree` has no fault, and the size of its root in `ExpandedSizes` is at most `MaximumElements`.
  explicit Network(const Tree& tree);

  /// False when it grew too much: the other members then say nothing.
  bool Complete() const noexcept { return m_complete; }

  std::size_t Size() const noexcept { return m_nodes.size(); }
  const Node& operator[](std::size_t index) const { return m_nodes[index]; }
  std::uint32_t Start() const noexcept { return m_start; }

  /// The sum of `Node::listed`.
  std::size_t ListedNodes() const noexcept { return m_listed; }
  /// How many the C library takes memory for.
  std::size_t ReservedNodes() const noexcept { return m_reserved; }

private:
  std::vector<Node> m_nodes;
  std::uint32_t m_start;
  std::size_t m_listed = 0;
  std::size_t m_reserved = 0;
  bool m_complete;
};

} // namespace Perenna::Pattern
