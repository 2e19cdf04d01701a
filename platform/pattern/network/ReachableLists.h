#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "Network.h"

namespace Perenna::Pattern {

/// What the C library lists for each node of a network: the nodes that can be reached from it without matching a byte.
/// To do so it copies what stands behind assertions.
class ReachableLists {
public:
  explicit ReachableLists(std::vector<Network::Node>& nodes) : m_nodes(nodes) {}

  /// Adds the copies, and says of each node what it lists. The sum is added to `listed`, the entries that the C library
  /// takes memory for to list them to `reserved`. False when it grows too much.
  bool Make(std::size_t& listed, std::size_t& reserved);

private:
  /// What is known of the size of a node's list: of one that is `Listed` an upper bound.
  enum class State : std::uint8_t { Unknown, Listing, Listed, Counted };

  void Count(std::uint32_t start, std::vector<std::uint32_t>& seen_from);
  std::size_t Reserved(const Network::Node& node) const;
  bool AddUp(std::uint32_t index);
  bool TakeSteps(std::size_t steps);
  bool ListFrom(std::uint32_t start);
  std::uint32_t Copy(std::uint32_t origin, std::uint8_t conditions);
  std::uint32_t FindCopy(std::uint32_t origin, std::uint8_t conditions);
  bool CopyBehind(std::uint32_t assertion);

  std::vector<Network::Node>& m_nodes;
  std::vector<State> m_state;
  std::vector<std::uint32_t> m_pending;
  std::size_t m_steps = 0;
};

} // namespace Perenna::Pattern
