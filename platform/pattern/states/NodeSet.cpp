#include "NodeSet.h"

#include <bitset>

namespace Perenna::Pattern {

namespace {

constexpr std::uint32_t WordBits = 64;

/// The bits above one of them.
std::uint64_t Above(std::uint32_t bit) {
  return ~std::uint64_t{1} << bit;
}

} // namespace

NodeSet::NodeSet(std::size_t nodes) : m_words(nodes / WordBits + 1), m_used(m_words.size() / WordBits + 1) {}

void NodeSet::Clear() {
  for (std::size_t block = 0; block < m_used.size(); ++block) {
    ForEachBit(m_used[block], [&](std::uint32_t bit) { m_words[block * WordBits + bit] = 0; });
    m_used[block] = 0;
  }
  m_size = m_passed = m_looks = m_above = 0;
  m_cursor = 0;
}

std::size_t NodeSet::Count(std::uint32_t above, std::uint32_t up_to) {
  std::uint32_t word = above / WordBits;
  const std::uint32_t last = up_to / WordBits;
  std::uint64_t bits = m_words[word] & Above(above % WordBits);
  std::size_t count = 0;
  m_looks += last - word;
  for (; word < last; bits = m_words[++word]) {
    count += std::bitset<WordBits>(bits).count();
  }
  return count + std::bitset<WordBits>(bits & ~Above(up_to % WordBits)).count();
}

void NodeSet::Move(std::uint32_t lowest) {
  if (lowest > m_cursor) {
    m_above -= Count(m_cursor, lowest);
  } else if (lowest < m_cursor) {
    m_above += Count(lowest, m_cursor);
  }
  m_passed += m_above;
}

std::size_t NodeSet::MovedToKeep(const std::vector<std::uint64_t>& kept) const {
  std::size_t above = m_size;
  std::size_t moved = 0;
  for (std::size_t block = 0; block < m_used.size(); ++block) {
    ForEachBit(m_used[block], [&](std::uint32_t bit) {
      const std::size_t index = block * WordBits + bit;
      moved += above * std::bitset<WordBits>(m_words[index] & ~kept[index]).count();
      above -= std::bitset<WordBits>(m_words[index]).count();
    });
  }
  return moved;
}

void NodeSet::AppendTo(std::vector<NodeWord>& words, const std::vector<std::uint64_t>& kept) const {
  for (std::size_t block = 0; block < m_used.size(); ++block) {
    ForEachBit(m_used[block], [&](std::uint32_t bit) {
      const std::size_t index = block * WordBits + bit;
      const std::uint64_t nodes = m_words[index] & kept[index];
      if (nodes != 0) {
        words.push_back({static_cast<std::uint32_t>(index), nodes});
      }
    });
  }
}

} // namespace Perenna::Pattern
