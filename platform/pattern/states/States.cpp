#include "States.h"

#include <algorithm>
#include <functional>
#include <limits>
#include <numeric>

#include "Beginning.h"

namespace Perenna::Pattern {

namespace {

// Measured on the GNU C library 2.36, each with some reserve. A state has a table of the next state for each byte,
// two tables where conditions differ between word bytes and others, and is made for up to three contexts then.
constexpr double StateSeconds = 4e-6;
constexpr double GroupSeconds = 4e-6;
constexpr double NodeSeconds = 30e-9;
constexpr double ListedSeconds = 0.7e-9;
constexpr double PassedSeconds = 1.6e-9;
constexpr double MovedSeconds = 0.5e-9;
constexpr double StateBytes = 2600;
constexpr double GroupBytes = 300;
constexpr double NodeBytes = 12;
constexpr double ConditionFactor = 2;
constexpr double ConditionNodeBytes = 36;
/// A step from state to state that have been there before; more where they do not fit into the processor's cache.
constexpr double StepSeconds = 3e-9;
constexpr double FarStepSeconds = 50e-9;
constexpr double FarStates = 30000;
/// A step to a state that ends a match under a condition, which is looked for among all its nodes.
constexpr double HaltSeconds = 5e-9;
constexpr double HaltNodeSeconds = 0.9e-9;

constexpr std::size_t MaximumSteps = 27000000; ///< of some 4 ns, to find all states

double SumOfGreatest(std::vector<double>& values, std::size_t count) {
  const auto end = values.begin() + static_cast<std::ptrdiff_t>(std::min(count, values.size()));
  std::nth_element(values.begin(), end, values.end(), std::greater<>());
  return std::accumulate(values.begin(), end, 0.0);
}

bool HaveConditions(const Network& network) {
  for (std::size_t node = 0; node < network.Size(); ++node) {
    if (network[node].leaf != NoNode && network[network[node].next[0]].lists_conditions) {
      return true;
    }
  }
  return false;
}

} // namespace

States::States(const Tree& tree, const Network& network)
    : m_network(network), m_conditions(HaveConditions(network)),
      m_alphabet(tree, network, m_conditions || network[network.Start()].lists_conditions),
      m_lists(network, m_alphabet), m_distance(DistanceOfMatches(tree, network, m_alphabet)), m_members(network.Size()),
      m_is_here(m_alphabet.Masks().size(), 0), m_takes(m_alphabet.Masks().size(), 0), m_class_of(m_alphabet.Kinds()),
      m_next(network.Size()) {}

Context States::ContextOf(std::size_t kind) const {
  const unsigned char byte = m_alphabet.Representative(kind);
  return !m_conditions      ? Context::Other
         : byte == '\n'     ? Context::Newline
         : IsWordByte(byte) ? Context::Word
                            : Context::Other;
}

/// Whether a match that comes to the node ends, if its conditions hold.
bool States::Halts(std::uint32_t node) const {
  return m_network[node].consumes && m_network[node].leaf == NoNode && m_network[node].conditions != 0;
}

void States::TakeMember(std::uint32_t node) {
  const std::uint32_t mask = m_alphabet.MaskOf(node);
  if (mask != NoNode) {
    m_members[m_member_count++] = {node, mask};
    if (m_is_here[mask] == 0) {
      m_is_here[mask] = 1;
      m_masks_here.push_back(mask);
    }
  }
}

/// Kinds of bytes that all members take or refuse alike lead to the same nodes: they are of one class. How many there
/// are.
std::size_t States::DivideKinds() {
  const std::size_t kinds = m_class_of.size();
  std::fill(m_class_of.begin(), m_class_of.end(), 0);
  std::size_t classes = 1;
  for (const std::uint32_t mask : m_masks_here) {
    if (classes == kinds) {
      break;
    }
    std::array<std::array<std::uint16_t, 2>, 256> becomes{};
    const std::size_t before = classes;
    classes = 0;
    for (std::size_t kind = 0; kind < kinds; ++kind) {
      std::uint16_t& next = becomes[m_class_of[kind]][m_alphabet.Masks()[mask].test(kind) ? 1 : 0];
      if (next == 0) {
        next = static_cast<std::uint16_t>(++classes);
      }
      m_class_of[kind] = static_cast<std::uint16_t>(next - 1);
    }
    m_steps += (before + kinds) / 8 + 1;
  }
  return classes;
}

/// What it takes to make the states of `m_next`, one for each context but a text's begin, beyond what is counted for
/// every node.
double States::MakingSeconds() {
  std::size_t moved = 0;
  for (const Context context : {Context::Other, Context::Word, Context::Newline}) {
    moved += m_next.MovedToKeep(m_lists.Kept(context));
  }
  m_steps += m_next.Size() / 8;
  return static_cast<double>(moved) * MovedSeconds;
}

/// Counts what it takes to make the table of the states that follow `m_members`; with `follow`, finds these states.
/// False when there are too many.
bool States::Leave(bool follow, Needs& needs) {
  const double factor = m_conditions ? ConditionFactor : 1;
  needs.seconds += StateSeconds * factor;
  needs.bytes += StateBytes * factor;
  const std::size_t classes = DivideKinds();
  for (std::size_t index = 0; index < classes; ++index) {
    unsigned contexts = 0;
    bool any = false;
    for (std::size_t kind = 0; kind < m_class_of.size(); ++kind) {
      if (m_class_of[kind] != index) {
        continue;
      }
      for (std::size_t place = 0; place < m_masks_here.size() && contexts == 0; ++place) {
        const std::uint32_t mask = m_masks_here[place];
        m_takes[mask] = m_alphabet.Masks()[mask].test(kind) ? 1 : 0;
        any = any || m_takes[mask] != 0;
      }
      contexts |= 1U << static_cast<unsigned>(ContextOf(kind));
    }
    if (!any) {
      continue;
    }
    m_next.Clear();
    std::size_t accepted = 0;
    std::size_t listed = 0;
    for (std::size_t place = 0; place < m_member_count; ++place) {
      if (m_takes[m_members[place].mask] != 0) {
        const NodeLists::List& list = m_lists.Behind(m_members[place].node);
        m_lists.Merge(list, m_next);
        listed += list.size;
        ++accepted;
      }
    }
    needs.seconds += factor * (GroupSeconds + static_cast<double>(accepted) * NodeSeconds +
                               static_cast<double>(listed) * ListedSeconds) +
                     static_cast<double>(m_next.Passed()) * PassedSeconds;
    needs.bytes +=
        factor * GroupBytes + static_cast<double>(m_next.Size()) * (m_conditions ? ConditionNodeBytes : NodeBytes);
    m_steps += m_class_of.size() / 8 + m_member_count / 2 + listed + m_next.Looks();
    const std::size_t states = m_states.Size();
    for (std::size_t context = 0; follow && context < Contexts; ++context) {
      if ((contexts >> context & 1U) == 0) {
        continue;
      }
      const std::uint32_t state =
          m_states.Add(m_next, m_lists.Kept(static_cast<Context>(context)), static_cast<Context>(context));
      if (state == NoState) {
        return false;
      }
      m_walks.AddWay(state);
      m_steps += 6 * m_states[state].words + 64;
    }
    if (m_conditions && (!follow || m_states.Size() > states)) {
      needs.seconds += MakingSeconds();
    }
  }
  for (const std::uint32_t mask : m_masks_here) {
    m_is_here[mask] = 0;
  }
  m_masks_here.clear();
  m_member_count = 0;
  return m_steps <= MaximumSteps;
}

/// How often a match can begin in a text and go on for longer than what each match begins with.
double States::Starts(std::size_t bytes) const {
  const std::size_t places = bytes / m_distance + 1;
  return m_lists.Anchored() ? 1 : static_cast<double>(places);
}

double States::Steps(std::size_t bytes, std::size_t longest) const {
  const auto length = static_cast<double>(bytes);
  return m_lists.Anchored() ? length : Starts(bytes) * std::min(length / 2, static_cast<double>(longest) + 1);
}

Needs States::Bound(std::size_t bytes, std::size_t longest) {
  constexpr double Infinite = std::numeric_limits<double>::infinity();
  if (!m_lists.Complete()) {
    return {Infinite, Infinite};
  }
  // As if all states were the one of all nodes.
  bool halts = false;
  for (std::uint32_t node = 0; node < m_network.Size(); ++node) {
    TakeMember(node);
    halts = halts || Halts(node);
  }
  const std::size_t consuming = m_member_count;
  Needs needs;
  if (!Leave(false, needs)) {
    return {Infinite, Infinite};
  }
  const double steps = Steps(bytes, longest);
  // A match that begins once goes through no more states than it is long.
  double states = m_lists.Anchored() ? std::min(steps, static_cast<double>(longest) + 2) : steps;
  constexpr std::size_t FewNodes = 10;
  if (consuming <= FewNodes && !m_conditions) {
    states = std::min(states, static_cast<double>(1U << consuming));
  }
  const double halt = halts ? HaltSeconds + static_cast<double>(m_network.Size()) * HaltNodeSeconds : 0;
  needs.seconds =
      needs.seconds * states + steps * (halt + StepSeconds + FarStepSeconds * std::min(1.0, states / FarStates));
  needs.bytes *= states;
  return needs;
}

bool States::Explore(std::size_t bytes, std::size_t longest, const Needs& limit, Needs& needs) {
  if (!m_lists.Complete()) {
    return false;
  }
  for (std::size_t context = 0; context < Contexts; ++context) {
    m_next.Clear();
    m_lists.Merge(m_lists.Start(), m_next);
    const Context kept = m_conditions ? static_cast<Context>(context) : Context::Other;
    if (m_states.Add(m_next, m_lists.Kept(static_cast<Context>(context)), kept) == NoState) {
      return false;
    }
  }
  needs.seconds = MakingSeconds();
  const double starting = needs.seconds;
  // A match that begins once goes through no more states than it is long: the costliest, for all that is known.
  const std::size_t most = m_lists.Anchored() ? std::min(bytes, longest) + 1 : SIZE_MAX;
  std::vector<double> seconds;
  std::vector<double> memory;
  for (std::size_t index = 0; index < m_states.Size(); ++index) {
    std::size_t size = 0;
    bool halts = false;
    m_states.ForEachNode(m_states[index], [&](std::uint32_t node) {
      TakeMember(node);
      halts = halts || Halts(node);
      ++size;
    });
    m_steps += size / 2;
    m_walks.AddState(halts ? HaltSeconds + static_cast<double>(size) * HaltNodeSeconds : 0);
    Needs one;
    if (!Leave(true, one)) {
      return false;
    }
    seconds.push_back(one.seconds);
    memory.push_back(one.bytes);
    needs.seconds += one.seconds;
    needs.bytes += one.bytes;
    if (index < most && (needs.seconds > limit.seconds || needs.bytes > limit.bytes)) {
      return false;
    }
  }
  const auto states = static_cast<double>(m_states.Size());
  const double steps = Steps(bytes, longest);
  const Walks::Costs halting = m_walks.Costliest();
  needs.seconds = starting + SumOfGreatest(seconds, most) + Starts(bytes) * halting.once +
                  steps * (halting.a_step + StepSeconds + FarStepSeconds * std::min(1.0, states / FarStates));
  needs.bytes = SumOfGreatest(memory, most);
  return needs.seconds <= limit.seconds && needs.bytes <= limit.bytes;
}

} // namespace Perenna::Pattern
