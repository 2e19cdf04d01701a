#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "NodeSet.h"

namespace Perenna::Pattern {

/// What stands before a place of the text.
enum class Context : std::uint8_t { Other, Word, Newline, TextBegin };
constexpr std::size_t Contexts = 4;
constexpr std::uint32_t NoState = UINT32_MAX;

/// States of a matcher: sets of nodes, each in one context, each kept once.
class StateTable {
public:
  struct State {
    std::size_t begin; ///< in the words of all
    std::size_t words;
    std::uint64_t hash;
    Context context;
  };

  StateTable();

  std::size_t Size() const noexcept { return m_states.size(); }
  const State& operator[](std::size_t index) const { return m_states[index]; }

  /// Calls `call` with each node of a state, from the lowest to the highest.
  template <class Call> void ForEachNode(const State& state, Call call) const {
    for (std::size_t place = state.begin; place < state.begin + state.words; ++place) {
      const NodeWord word = m_words[place];
      ForEachBit(word.nodes, [&](std::uint32_t bit) { call(word.index * 64 + bit); });
    }
  }

  /// The index of the state of the nodes that are in `kept` too, which is added unless it is there. `NoState` when
  /// there are too many.
  std::uint32_t Add(const NodeSet& nodes, const std::vector<std::uint64_t>& kept, Context context);

private:
  bool IsSame(const State& one, const State& other) const;
  void Grow();

  std::vector<NodeWord> m_words;
  std::vector<State> m_states;
  std::size_t m_looks = 0;              ///< at buckets that were taken
  std::vector<std::uint32_t> m_buckets; ///< an open hash table of indices of `m_states`
};

} // namespace Perenna::Pattern
