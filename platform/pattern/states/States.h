#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "Alphabet.h"
#include "platform/pattern/network/Network.h"
#include "NodeLists.h"
#include "NodeSet.h"
#include "StateTable.h"
#include "platform/pattern/Tree.h"
#include "Walks.h"

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

  /// More than any text of `bytes` bytes can need, from the network alone. `longest` is the longest match.
  Needs Bound(std::size_t bytes, std::size_t longest);

  /// Finds all states. False when there are too many, or a text that goes through them all needs more than `limit`;
  /// `needs` is otherwise what such a text of `bytes` bytes needs.
  bool Explore(std::size_t bytes, std::size_t longest, const Needs& limit, Needs& needs);

private:
  struct Member {
    std::uint32_t node;
    std::uint32_t mask;
  };

  Context ContextOf(std::size_t kind) const;
  bool Halts(std::uint32_t node) const;

  void TakeMember(std::uint32_t node);
  std::size_t DivideKinds();
  double MakingSeconds();
  bool Leave(bool follow, Needs& needs);
  double Starts(std::size_t bytes) const;
  double Steps(std::size_t bytes, std::size_t longest) const;

  const Network& m_network;
  bool m_conditions; ///< whether any node behind a first byte has some
  Alphabet m_alphabet;
  NodeLists m_lists;
  std::size_t m_distance; ///< of the places where matches begin
  std::size_t m_steps = 0;

  // The state that is left.
  std::vector<Member> m_members; ///< the first `m_member_count`: its nodes that match a byte
  std::size_t m_member_count = 0;
  std::vector<std::uint32_t> m_masks_here; ///< of the members
  std::vector<std::uint8_t> m_is_here;     ///< for each mask, whether it is in `m_masks_here`
  std::vector<std::uint8_t> m_takes;       ///< for each mask, whether it takes the class of bytes that is looked at
  std::vector<std::uint16_t> m_class_of;   ///< of each kind: those that the members tell apart

  NodeSet m_next;
  StateTable m_states;
  Walks m_walks; ///< what they cost for ending matches under conditions
};

} // namespace Perenna::Pattern
