#include "States.h"

#include <algorithm>
#include <functional>
#include <map>
#include <numeric>
#include <set>
#include <unordered_map>

namespace Perenna::Pattern {

namespace {

// Measured on the GNU C library 2.36, each with some reserve. A state has a table of the next state for each byte,
// two tables where conditions differ between word bytes and others, and is made for up to three contexts then.
constexpr double StateSeconds = 4e-6;
constexpr double GroupSeconds = 4e-6;
constexpr double NodeSeconds = 30e-9;
constexpr double ListedSeconds = 0.7e-9;
constexpr double StateBytes = 2600;
constexpr double GroupBytes = 300;
constexpr double NodeBytes = 12;
constexpr double ConditionFactor = 2;
constexpr double ConditionNodeBytes = 36;
/// A step from state to state that have been there before; more where they do not fit into the processor's cache.
constexpr double StepSeconds = 3e-9;
constexpr double FarStepSeconds = 50e-9;
constexpr double FarStates = 30000;

constexpr std::size_t MaximumSteps = 30000000; ///< of a few nanoseconds, to find all states
constexpr std::size_t MaximumBuckets = 1U << 17U;

bool IsWord(unsigned char byte) {
  return byte == '_' || (byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z');
}

double SumOfGreatest(std::vector<double>& values, std::size_t count) {
  if (values.size() > count) {
    std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(count), values.end(),
                     std::greater<>());
    values.resize(count);
  }
  return std::accumulate(values.begin(), values.end(), 0.0);
}

std::uint64_t Mixed(std::uint64_t value) {
  value *= 0x9E3779B97F4A7C15U;
  return value ^ value >> 29U;
}

} // namespace

States::States(const Tree& tree, const Network& network) : m_tree(tree), m_network(network) {
  m_reached_in.assign(network.Size(), 0);
  m_taken_in.assign(network.Size(), 0);
  for (std::size_t node = 0; node < network.Size() && !m_conditions; ++node) {
    m_conditions = network[node].leaf != NoNode && network[network[node].next[0]].lists_conditions;
  }
  DivideBytes();
  MakeMasks();
  bool newline =
      std::any_of(m_masks.begin(), m_masks.end(), [&](const Mask& mask) { return mask.test(m_kind_of['\n']); });
  for (const Context context : {Context::Other, Context::Word}) {
    ++m_round;
    Reach(network.Start(), context);
    newline = newline || std::any_of(m_reached.begin(), m_reached.end(),
                                     [&](std::uint32_t node) { return network[node].consumes; });
    m_reached.clear();
  }
  m_anchored = !newline;
}

void States::DivideBytes() {
  std::vector<CharacterSet> sets{CharacterSet().set('\n')};
  if (m_network[m_network.Start()].lists_conditions || m_conditions) {
    CharacterSet word;
    for (std::size_t byte = 0; byte < word.size(); ++byte) {
      word.set(byte, IsWord(static_cast<unsigned char>(byte)));
    }
    sets.push_back(word);
  }
  CharacterSet literals;
  for (NodeIndex index = 0; index < m_tree.Size(); ++index) {
    const Node& node = m_tree[index];
    if (node.kind == Kind::Literal && !literals.test(node.byte)) {
      literals.set(node.byte);
      sets.push_back(m_tree.Characters(node));
    } else if (node.kind == Kind::Set) {
      sets.push_back(m_tree.Characters(node));
    }
  }
  std::size_t kinds = 1;
  for (const CharacterSet& set : sets) {
    if (kinds == m_kind_of.size()) {
      break;
    }
    // The bytes of a kind that are in the set become a kind of their own, unless all are.
    std::array<std::uint16_t, 256> inside{};
    std::array<std::uint16_t, 256> all{};
    for (std::size_t byte = 0; byte < m_kind_of.size(); ++byte) {
      ++all[m_kind_of[byte]];
      inside[m_kind_of[byte]] = static_cast<std::uint16_t>(inside[m_kind_of[byte]] + (set[byte] ? 1 : 0));
    }
    std::array<std::uint8_t, 256> becomes{};
    const std::size_t before = kinds;
    for (std::size_t kind = 0; kind < before; ++kind) {
      becomes[kind] = static_cast<std::uint8_t>(inside[kind] > 0 && inside[kind] < all[kind] ? kinds++ : kind);
    }
    for (std::size_t byte = 0; byte < m_kind_of.size(); ++byte) {
      m_kind_of[byte] = set[byte] ? becomes[m_kind_of[byte]] : m_kind_of[byte];
    }
  }
  m_representative.resize(kinds);
  for (std::size_t byte = m_kind_of.size(); byte-- > 0;) {
    m_representative[m_kind_of[byte]] = static_cast<unsigned char>(byte);
  }
}

bool States::Accepts(const Network::Node& node, std::size_t kind) const {
  const unsigned char byte = m_representative[kind];
  if (node.leaf == NoNode || (node.conditions & Condition::AtTextEnd) != 0 ||
      ((node.conditions & Condition::BeforeNewline) != 0 && byte != '\n') ||
      ((node.conditions & Condition::BeforeWord) != 0 && !IsWord(byte)) ||
      ((node.conditions & Condition::BeforeNoWord) != 0 && IsWord(byte))) {
    return false;
  }
  const Node& leaf = m_tree[node.leaf];
  return leaf.kind == Kind::Literal ? leaf.byte == byte : m_tree.Characters(leaf).test(byte);
}

void States::MakeMasks() {
  // Nodes of one leaf with the same conditions have the same mask.
  std::map<std::pair<NodeIndex, std::uint8_t>, std::uint32_t> known;
  std::unordered_map<Mask, std::uint32_t> indices;
  m_mask_of.assign(m_network.Size(), NoNode);
  for (std::size_t index = 0; index < m_network.Size(); ++index) {
    const Network::Node& node = m_network[index];
    if (node.leaf == NoNode) {
      continue;
    }
    const auto found = known.emplace(std::make_pair(node.leaf, node.conditions), 0);
    if (found.second) {
      Mask mask;
      for (std::size_t kind = 0; kind < m_representative.size(); ++kind) {
        mask.set(kind, Accepts(node, kind));
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

double States::Steps(std::size_t bytes, std::size_t longest) const {
  const auto length = static_cast<double>(bytes);
  return m_anchored ? length : length * std::min(length / 2, static_cast<double>(longest) + 1);
}

Needs States::Bound(std::size_t bytes, std::size_t longest) const {
  std::size_t accepted = 0;
  std::size_t listed = 0;
  std::size_t consuming = 0;
  for (std::size_t index = 0; index < m_network.Size(); ++index) {
    if (m_mask_of[index] != NoNode) {
      const std::size_t kinds = m_masks[m_mask_of[index]].count();
      accepted += kinds;
      listed += kinds * m_network[m_network[index].next[0]].listed;
      ++consuming;
    }
  }
  const double steps = Steps(bytes, longest);
  // A match that begins once goes through no more states than it is long.
  double states = m_anchored ? std::min(steps, static_cast<double>(longest) + 2) : steps;
  constexpr std::size_t FewNodes = 10;
  if (consuming <= FewNodes && !m_conditions) {
    states = std::min(states, static_cast<double>(1U << consuming));
  }
  const double factor = m_conditions ? ConditionFactor : 1;
  const double groups = static_cast<double>(std::min(accepted, m_representative.size()));
  Needs needs;
  needs.seconds = states * factor *
                      (StateSeconds + groups * GroupSeconds + static_cast<double>(accepted) * NodeSeconds +
                       static_cast<double>(listed) * ListedSeconds) +
                  steps * (StepSeconds + FarStepSeconds * std::min(1.0, states / FarStates));
  needs.bytes = states * factor * (StateBytes + groups * GroupBytes) +
                states * static_cast<double>(listed) * (m_conditions ? ConditionNodeBytes : NodeBytes);
  return needs;
}

/// Adds to `m_reached` what can be reached from a node without matching a byte, where its conditions hold.
void States::Reach(std::uint32_t start, Context context) {
  if (m_reached_in[start] == m_round) {
    return;
  }
  m_reached_in[start] = m_round;
  const std::size_t first = m_reached.size();
  std::uint8_t broken = context == Context::Word ? Condition::AfterNoWord : Condition::AfterWord;
  if (context != Context::Newline && context != Context::TextBegin) {
    broken |= Condition::AfterNewline;
  }
  if (context != Context::TextBegin) {
    broken |= Condition::AtTextBegin;
  }
  m_reached.push_back(start);
  for (std::size_t place = first; place < m_reached.size(); ++place) {
    const Network::Node& node = m_network[m_reached[place]];
    for (std::uint8_t way = 0; way < node.ways; ++way) {
      if (m_reached_in[node.next[way]] != m_round) {
        m_reached_in[node.next[way]] = m_round;
        m_reached.push_back(node.next[way]);
      }
    }
  }
  m_steps += m_reached.size() - first;
  const auto kept = std::remove_if(m_reached.begin() + static_cast<std::ptrdiff_t>(first), m_reached.end(),
                                   [&](std::uint32_t node) { return (m_network[node].conditions & broken) != 0; });
  m_reached.erase(kept, m_reached.end());
}

/// Makes a state of what was reached, unless there is one. False when there are too many.
bool States::TakeReached(Context context) {
  if (!m_conditions) {
    context = Context::Other;
  }
  // States are sets: the order in which their members were reached must not tell them apart.
  std::uint64_t hash = Mixed(static_cast<std::uint64_t>(context));
  for (const std::uint32_t node : m_reached) {
    hash += Mixed(node + 4U);
    m_taken_in[node] = m_round;
  }
  const std::size_t mask = m_buckets.size() - 1;
  std::size_t bucket = hash & mask;
  for (; m_buckets[bucket] != NoNode; bucket = (bucket + 1) & mask) {
    const State& state = m_states[m_buckets[bucket]];
    if (state.hash == hash && state.context == context && state.size == m_reached.size() &&
        std::all_of(m_members.begin() + static_cast<std::ptrdiff_t>(state.begin),
                    m_members.begin() + static_cast<std::ptrdiff_t>(state.begin + state.size),
                    [&](std::uint32_t node) { return m_taken_in[node] == m_round; })) {
      m_reached.clear();
      return true;
    }
  }
  if (m_states.size() >= MaximumBuckets / 2) {
    return false;
  }
  m_buckets[bucket] = static_cast<std::uint32_t>(m_states.size());
  m_states.push_back({m_members.size(), m_reached.size(), hash, context});
  m_members.insert(m_members.end(), m_reached.begin(), m_reached.end());
  m_reached.clear();
  if (2 * m_states.size() > m_buckets.size()) {
    m_buckets.assign(4 * m_buckets.size(), NoNode);
    for (std::size_t index = 0; index < m_states.size(); ++index) {
      std::size_t place = m_states[index].hash & (m_buckets.size() - 1);
      while (m_buckets[place] != NoNode) {
        place = (place + 1) & (m_buckets.size() - 1);
      }
      m_buckets[place] = static_cast<std::uint32_t>(index);
    }
  }
  return true;
}

/// Finds the states that follow one, and adds what making them needs.
bool States::Leave(std::size_t index, Needs& needs) {
  const State state = m_states[index];
  // The members by what they accept.
  std::vector<std::uint32_t> masks;
  std::vector<std::vector<std::uint32_t>> accepting;
  for (std::size_t member = state.begin; member < state.begin + state.size; ++member) {
    const std::uint32_t node = m_members[member];
    if (m_mask_of[node] != NoNode) {
      const auto place =
          static_cast<std::size_t>(std::find(masks.begin(), masks.end(), m_mask_of[node]) - masks.begin());
      if (place == masks.size()) {
        masks.push_back(m_mask_of[node]);
        accepting.emplace_back();
      }
      m_steps += masks.size() / 4;
      accepting[place].push_back(node);
    }
  }
  m_steps += state.size / 2;
  needs.seconds += StateSeconds * (m_conditions ? ConditionFactor : 1);
  needs.bytes += StateBytes * (m_conditions ? ConditionFactor : 1);
  std::set<std::pair<std::vector<std::size_t>, Context>> groups;
  std::set<std::vector<std::size_t>> counted;
  for (std::size_t kind = 0; kind < m_representative.size(); ++kind) {
    const unsigned char byte = m_representative[kind];
    const Context context = !m_conditions  ? Context::Other
                            : byte == '\n' ? Context::Newline
                            : IsWord(byte) ? Context::Word
                                           : Context::Other;
    std::vector<std::size_t> group;
    for (std::size_t place = 0; place < masks.size(); ++place) {
      if (m_masks[masks[place]].test(kind)) {
        group.push_back(place);
      }
    }
    m_steps += masks.size() + 1;
    if (group.empty() || !groups.emplace(group, context).second) {
      continue;
    }
    ++m_round;
    double accepted = 0;
    double listed = 0;
    for (const std::size_t place : group) {
      for (const std::uint32_t node : accepting[place]) {
        Reach(m_network[node].next[0], context);
        listed += m_network[m_network[node].next[0]].listed;
      }
      accepted += static_cast<double>(accepting[place].size());
    }
    const auto reached = static_cast<double>(m_reached.size());
    if (!TakeReached(context)) {
      return false;
    }
    // The first time it counts for all contexts.
    if (counted.insert(group).second) {
      const double factor = m_conditions ? ConditionFactor : 1;
      needs.seconds += factor * (GroupSeconds + accepted * NodeSeconds + listed * ListedSeconds);
      needs.bytes += factor * GroupBytes + reached * (m_conditions ? ConditionNodeBytes : NodeBytes);
    }
  }
  return m_steps <= MaximumSteps;
}

bool States::Explore(std::size_t bytes, std::size_t longest, const Needs& limit, Needs& needs) {
  constexpr std::size_t FirstBuckets = 256;
  m_buckets.assign(FirstBuckets, NoNode);
  for (const Context context : {Context::Other, Context::Word, Context::Newline, Context::TextBegin}) {
    ++m_round;
    Reach(m_network.Start(), context);
    if (!TakeReached(context)) {
      return false;
    }
  }
  // A match that begins once goes through no more states than it is long: the costliest, for all that is known.
  const std::size_t most = m_anchored ? std::min(bytes, longest) + 1 : MaximumBuckets;
  std::vector<double> seconds;
  std::vector<double> memory;
  for (std::size_t state = 0; state < m_states.size(); ++state) {
    Needs one;
    if (!Leave(state, one)) {
      return false;
    }
    seconds.push_back(one.seconds);
    memory.push_back(one.bytes);
    needs.seconds += one.seconds;
    needs.bytes += one.bytes;
    if (state < most && (needs.seconds > limit.seconds || needs.bytes > limit.bytes)) {
      return false;
    }
  }
  const auto states = static_cast<double>(m_states.size());
  needs.seconds = SumOfGreatest(seconds, most) +
                  Steps(bytes, longest) * (StepSeconds + FarStepSeconds * std::min(1.0, states / FarStates));
  needs.bytes = SumOfGreatest(memory, most);
  return needs.seconds <= limit.seconds && needs.bytes <= limit.bytes;
}

} // namespace Perenna::Pattern
