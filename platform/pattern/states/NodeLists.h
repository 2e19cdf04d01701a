#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "Alphabet.h"
#include "NodeSet.h"
#include "StateTable.h"
#include "platform/pattern/network/Network.h"

namespace Perenna::Pattern {

/// The nodes that a matcher comes to from its start and behind each byte that it matches, and those of them that it
/// keeps.
class NodeLists {
public:
  struct List {
    std::uint32_t begin = 0;
    std::uint32_t size = 0;
    std::uint32_t lowest = 0; ///< of its nodes
  };

  NodeLists(const Network& network, const Alphabet& alphabet);

  /// False when the lists grew too long: they are not to be used then.
  bool Complete() const noexcept { return m_complete; }
  /// Whether a match can begin at a line's begin only, and ends before the next one.
  bool Anchored() const noexcept { return m_anchored; }

  const List& Start() const noexcept { return m_start; }
  /// `node` matches a byte.
  const List& Behind(std::uint32_t node) const { return m_behind[node]; }
  void Merge(const List& list, NodeSet& nodes) const {
    const std::uint32_t* const begin = m_listed.data() + list.begin;
    nodes.Merge(begin, begin + list.size, list.lowest);
  }
  /// A bit for each node whose conditions a context does not break.
  const std::vector<std::uint64_t>& Kept(Context context) const { return m_kept[static_cast<std::size_t>(context)]; }

private:
  bool ListFrom(std::uint32_t node, std::vector<std::uint32_t>& known, List& list);
  void KeepByContext();
  void FindAnchor(const Alphabet& alphabet);

  const Network& m_network;
  bool m_complete = true;
  bool m_anchored = false;
  std::vector<std::uint32_t> m_listed;
  List m_start;
  std::vector<List> m_behind;
  std::array<std::vector<std::uint64_t>, Contexts> m_kept;
  NodeSet m_reached;
};

} // namespace Perenna::Pattern
