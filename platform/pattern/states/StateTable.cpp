#include "StateTable.h"

#include <algorithm>

namespace Perenna::Pattern {

namespace {

constexpr std::size_t FirstBuckets = 256;
constexpr std::size_t MaximumStates = 1U << 16U;
constexpr std::size_t MaximumWords = 4U << 20U; ///< 64 MiB

constexpr std::size_t MaximumLooks = 4000000; ///< at places in the table: nobody makes all states meet in one

/// Every bit of the value decides on every bit of what it becomes (the finisher of the generator splitmix64).
std::uint64_t Mixed(std::uint64_t value) {
  value = (value ^ value >> 30U) * 0xBF58476D1CE4E5B9U;
  value = (value ^ value >> 27U) * 0x94D049BB133111EBU;
  return value ^ value >> 31U;
}

} // namespace

StateTable::StateTable() : m_buckets(FirstBuckets, NoState) {}

bool StateTable::IsSame(const State& one, const State& other) const {
  const auto begin = m_words.begin() + static_cast<std::ptrdiff_t>(one.begin);
  return one.hash == other.hash && one.context == other.context && one.words == other.words &&
         std::equal(begin, begin + static_cast<std::ptrdiff_t>(one.words),
                    m_words.begin() + static_cast<std::ptrdiff_t>(other.begin), [](NodeWord left, NodeWord right) {
                      return left.index == right.index && left.nodes == right.nodes;
                    });
}

std::uint32_t StateTable::Add(const NodeSet& nodes, const std::vector<std::uint64_t>& kept, Context context) {
  const std::size_t begin = m_words.size();
  nodes.AppendTo(m_words, kept);
  State state{begin, m_words.size() - begin, Mixed(static_cast<std::uint64_t>(context) + 1), context};
  for (std::size_t place = state.begin; place < m_words.size(); ++place) {
    state.hash = Mixed(state.hash + m_words[place].index + m_words[place].nodes * 0x9E3779B97F4A7C15U);
  }
  const std::size_t mask = m_buckets.size() - 1;
  std::size_t bucket = state.hash & mask;
  for (; m_buckets[bucket] != NoState; bucket = (bucket + 1) & mask) {
    ++m_looks;
    if (IsSame(m_states[m_buckets[bucket]], state)) {
      m_words.resize(state.begin);
      return m_buckets[bucket];
    }
  }
  if (m_states.size() >= MaximumStates || m_words.size() > MaximumWords || m_looks > MaximumLooks) {
    return NoState;
  }
  m_buckets[bucket] = static_cast<std::uint32_t>(m_states.size());
  m_states.push_back(state);
  if (2 * m_states.size() > m_buckets.size()) {
    Grow();
  }
  return static_cast<std::uint32_t>(m_states.size() - 1);
}

void StateTable::Grow() {
  m_buckets.assign(4 * m_buckets.size(), NoState);
  for (std::size_t index = 0; index < m_states.size(); ++index) {
    std::size_t place = m_states[index].hash & (m_buckets.size() - 1);
    while (m_buckets[place] != NoState) {
      place = (place + 1) & (m_buckets.size() - 1);
    }
    m_buckets[place] = static_cast<std::uint32_t>(index);
  }
}

} // namespace Perenna::Pattern
