#pragma once

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "Network.h"
#include "Tree.h"

namespace Perenna::Pattern {

/// What a match may need, beyond what compiling needed.
struct Needs {
  double seconds = 0;
  double bytes = 0;
};

/// The sets of nodes that a matcher can be in: it makes each when a text first leads there, and keeps it.
class States {
public:
  States(const Tree& tree, const Network& network);

  /// Whether a match can begin at a line's begin only, and ends before the next one.
  bool Anchored() const noexcept { return m_anchored; }

  /// More than any text of `bytes` bytes can need, from the network's size alone. `longest` is the longest match.
  Needs Bound(std::size_t bytes, std::size_t longest) const;

  /// Finds all states. False when there are too many, or a text that goes through them all needs more than `limit`;
  /// `needs` is otherwise what such a text of `bytes` bytes needs.
  bool Explore(std::size_t bytes, std::size_t longest, const Needs& limit, Needs& needs);

private:
  enum class Context : std::uint8_t { Other, Word, Newline, TextBegin };

  struct State {
    std::size_t begin = 0; ///< in `m_members`
    std::size_t size = 0;
    std::uint64_t hash = 0;
    Context context = Context::Other;
  };

  void DivideBytes();
  void MakeMasks();
  bool Accepts(const Network::Node& node, std::size_t kind) const;
  void Reach(std::uint32_t start, Context context);
  bool TakeReached(Context context);
  bool Leave(std::size_t index, Needs& needs);
  double Steps(std::size_t bytes, std::size_t longest) const;

  const Tree& m_tree;
  const Network& m_network;
  bool m_conditions = false; ///< whether any node behind a first byte has some
  bool m_anchored = false;
  std::size_t m_steps = 0;

  std::array<std::uint8_t, 256> m_kind_of{};   ///< of a byte; bytes that no node tells apart are of one kind
  std::vector<unsigned char> m_representative; ///< of a kind

  using Mask = std::bitset<256>;        ///< of kinds
  std::vector<Mask> m_masks;            ///< the different ones that nodes accept
  std::vector<std::uint32_t> m_mask_of; ///< for each node, an index of `m_masks`; NoNode: it matches no byte

  std::vector<std::uint32_t> m_members;
  std::vector<State> m_states;
  std::vector<std::uint32_t> m_buckets; ///< an open hash table of indices of `m_states`
  std::vector<std::uint32_t> m_reached;
  std::vector<std::uint32_t> m_reached_in; ///< for each node, the last `m_round` that reached it
  std::vector<std::uint32_t> m_taken_in;   ///< likewise, of those whose conditions hold
  std::uint32_t m_round = 0;
};

} // namespace Perenna::Pattern
