#pragma once

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/pattern/network/Network.h"
#include "platform/pattern/Tree.h"

namespace Perenna::Pattern {

bool IsWordByte(unsigned char byte) noexcept;

/// The bytes as the nodes of a network tell them apart: those that each node takes or refuses alike are of one kind.
class Alphabet {
public:
  using Mask = std::bitset<256>; ///< of kinds

  /// `words`: also bytes of words and others are of different kinds.
  Alphabet(const Tree& tree, const Network& network, bool words);

  std::size_t Kinds() const noexcept { return m_representative.size(); }
  unsigned char Representative(std::size_t kind) const { return m_representative[kind]; }
  std::size_t KindOf(unsigned char byte) const { return m_kind_of[byte]; }

  /// The different ones that nodes take.
  const std::vector<Mask>& Masks() const noexcept { return m_masks; }
  /// Of a node: an index of `Masks`, or NoNode when it takes no byte.
  std::uint32_t MaskOf(std::uint32_t node) const { return m_mask_of[node]; }

private:
  void Divide(const CharacterSet& set);
  void MakeMasks(const Tree& tree, const Network& network);

  std::array<std::uint8_t, 256> m_kind_of{};
  std::vector<unsigned char> m_representative{0};
  std::vector<Mask> m_masks;
  std::vector<std::uint32_t> m_mask_of;
};

} // namespace Perenna::Pattern
