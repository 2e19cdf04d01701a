#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Perenna::Pattern {

/// Nodes of a network, 64 to a word, of which only those that hold some are there.
struct NodeWord {
  std::uint32_t index;
  std::uint64_t nodes;
};

/// A set of nodes that is made as the C library makes one: of the lists of one node after the other, each merged into
/// what is there. To find the places of a list's nodes it passes all that is above the lowest of them.
class NodeSet {
public:
  explicit NodeSet(std::size_t nodes);

  void Clear();
  /// False when the node is there.
  bool Insert(std::uint32_t node) {
    std::uint64_t& word = m_words[node / 64];
    const std::uint64_t bit = std::uint64_t{1} << node % 64;
    const bool fresh = (word & bit) == 0;
    if (word == 0) {
      m_used[node / 64 / 64] |= std::uint64_t{1} << node / 64 % 64;
    }
    word |= bit;
    m_size += fresh ? 1 : 0;
    return fresh;
  }
  /// Adds the nodes in [begin, end), of which `lowest` is the lowest.
  void Merge(const std::uint32_t* begin, const std::uint32_t* end, std::uint32_t lowest) {
    if (m_above > 0 || lowest < m_cursor) {
      Move(lowest);
    }
    m_cursor = lowest;
    for (; begin != end; ++begin) {
      m_above += Insert(*begin) && *begin > lowest ? 1 : 0;
    }
  }

  std::size_t Size() const noexcept { return m_size; }
  /// How many nodes were passed since `Clear`.
  std::size_t Passed() const noexcept { return m_passed; }
  /// Words looked at since `Clear` to count those.
  std::size_t Looks() const noexcept { return m_looks; }

  /// How many nodes the C library moves to leave only those that are in `kept` too: for each of the others all above
  /// it.
  std::size_t MovedToKeep(const std::vector<std::uint64_t>& kept) const;

  /// Appends the nodes that are in `kept` too, 64 to a word, from the lowest to the highest.
  void AppendTo(std::vector<NodeWord>& words, const std::vector<std::uint64_t>& kept) const;

private:
  std::size_t Count(std::uint32_t above, std::uint32_t up_to);
  void Move(std::uint32_t lowest);

  std::vector<std::uint64_t> m_words;
  std::vector<std::uint64_t> m_used; ///< a bit for each of `m_words` that is not 0
  std::size_t m_size = 0;
  std::size_t m_passed = 0;
  std::size_t m_looks = 0;
  std::uint32_t m_cursor = 0; ///< the lowest node of the last list
  std::size_t m_above = 0;    ///< how many are above it
};

/// Calls `call` with each bit that is set.
template <class Call> void ForEachBit(std::uint64_t bits, Call call) {
  for (; bits != 0; bits &= bits - 1) {
    call(static_cast<std::uint32_t>(__builtin_ctzll(bits)));
  }
}

} // namespace Perenna::Pattern
