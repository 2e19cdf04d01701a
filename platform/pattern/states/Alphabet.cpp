#include "Alphabet.h"

#include <map>
#include <unordered_map>

namespace Perenna::Pattern {

namespace {

bool Takes(const Tree& tree, const Network::Node& node, unsigned char byte) {
  if ((node.conditions & Condition::AtTextEnd) != 0 ||
      ((node.conditions & Condition::BeforeNewline) != 0 && byte != '\n') ||
      ((node.conditions & Condition::BeforeWord) != 0 && !IsWordByte(byte)) ||
      ((node.conditions & Condition::BeforeNoWord) != 0 && IsWordByte(byte))) {
    return false;
  }
  const Node& leaf = tree[node.leaf];
  return leaf.kind == Kind::Literal ? leaf.byte == byte : tree.Characters(leaf).test(byte);
}

} // namespace

bool IsWordByte(unsigned char byte) noexcept {
  return byte == '_' || (byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z');
}

Alphabet::Alphabet(const Tree& tree, const Network& network, bool words) {
  Divide(CharacterSet().set('\n'));
  if (words) {
    CharacterSet word;
    for (std::size_t byte = 0; byte < word.size(); ++byte) {
      word.set(byte, IsWordByte(static_cast<unsigned char>(byte)));
    }
    Divide(word);
  }
  CharacterSet literals;
  for (NodeIndex index = 0; index < tree.Size(); ++index) {
    const Node& node = tree[index];
    if (node.kind == Kind::Literal ? literals.test(node.byte) : node.kind != Kind::Set) {
      continue;
    }
    literals.set(node.byte, literals.test(node.byte) || node.kind == Kind::Literal);
    Divide(tree.Characters(node));
  }
  MakeMasks(tree, network);
}

/// The bytes of a kind that are in the set become a kind of their own, unless all are.
void Alphabet::Divide(const CharacterSet& set) {
  if (Kinds() == m_kind_of.size()) {
    return;
  }
  std::array<std::uint16_t, 256> inside{};
  std::array<std::uint16_t, 256> all{};
  for (std::size_t byte = 0; byte < m_kind_of.size(); ++byte) {
    ++all[m_kind_of[byte]];
    inside[m_kind_of[byte]] = static_cast<std::uint16_t>(inside[m_kind_of[byte]] + (set[byte] ? 1 : 0));
  }
  std::array<std::uint8_t, 256> becomes{};
  std::size_t kinds = Kinds();
  for (std::size_t kind = 0; kind < Kinds(); ++kind) {
    becomes[kind] = static_cast<std::uint8_t>(inside[kind] > 0 && inside[kind] < all[kind] ? kinds++ : kind);
  }
  m_representative.resize(kinds);
  for (std::size_t byte = m_kind_of.size(); byte-- > 0;) {
    m_kind_of[byte] = set[byte] ? becomes[m_kind_of[byte]] : m_kind_of[byte];
    m_representative[m_kind_of[byte]] = static_cast<unsigned char>(byte);
  }
}

void Alphabet::MakeMasks(const Tree& tree, const Network& network) {
  // Nodes of one leaf with the same conditions have the same mask.
  std::map<std::pair<NodeIndex, std::uint8_t>, std::uint32_t> known;
  std::unordered_map<Mask, std::uint32_t> indices;
  m_mask_of.assign(network.Size(), NoNode);
  for (std::size_t index = 0; index < network.Size(); ++index) {
    const Network::Node& node = network[index];
    if (node.leaf == NoNode) {
      continue;
    }
    const auto found = known.emplace(std::make_pair(node.leaf, node.conditions), 0);
    if (found.second) {
      Mask mask;
      for (std::size_t kind = 0; kind < Kinds(); ++kind) {
        mask.set(kind, Takes(tree, node, m_representative[kind]));
      }
      const auto same = indices.emplace(mask, static_cast<std::uint32_t>(m_masks.size()));
      if (same.second) {
        m_masks.push_back(mask);
      }
      found.first->second = same.first->second;
    }
    m_mask_of[index] = found.first->second;
  }
}

} // namespace Perenna::Pattern
