#include "ReachableLists.h"

#include <algorithm>

namespace Perenna::Pattern {

namespace {

constexpr std::size_t MaximumNodes = 2 * MaximumElements;
/// Nodes passed in one go without matching a byte: the C library recurses as deep, some 150 bytes of stack each.
constexpr std::size_t MaximumChain = 10000;
/// Steps of a few nanoseconds, here and in the C library.
constexpr std::size_t MaximumSteps = 20000000;
/// Entries of lists that the C library merges in the time of a step.
constexpr std::size_t EntriesAStep = 8;
/// Entries of the lists of reachable nodes.
constexpr std::size_t MaximumListed = 30000000;

bool AreApart(const Network::Node& one, const Network::Node& other) {
  return one.highest < other.lowest || other.highest < one.lowest;
}

} // namespace

bool ReachableLists::Make(std::size_t& listed, std::size_t& reserved) {
  m_state.assign(m_nodes.size(), State::Unknown);
  for (std::uint32_t node = 0; node < m_nodes.size(); ++node) {
    if (m_state[node] == State::Unknown && !ListFrom(node)) {
      return false;
    }
  }
  std::vector<std::uint32_t> seen_from(m_nodes.size(), NoNode);
  for (std::uint32_t node = 0; node < m_nodes.size(); ++node) {
    if (m_state[node] != State::Counted) {
      Count(node, seen_from);
    }
    listed += m_nodes[node].listed;
    if (listed > MaximumListed) {
      return false;
    }
  }
  for (const Network::Node& node : m_nodes) {
    reserved += Reserved(node);
  }
  return true;
}

/// The entries for which the C library takes memory to list what a node reaches. It merges one way's list after the
/// other into the node's, and makes room for twice both where the room left might not do.
std::size_t ReachableLists::Reserved(const Network::Node& node) const {
  std::size_t room = node.ways + std::size_t{1};
  std::size_t entries = 1;
  for (std::uint8_t way = 0; way < node.ways; ++way) {
    const std::size_t merged = m_nodes[node.next[way]].listed;
    if (room < 2 * merged + entries) {
      room = 2 * (merged + room);
    }
    entries += merged;
  }
  return room;
}

/// Walks to what can be reached, since some of it can be in several ways.
void ReachableLists::Count(std::uint32_t start, std::vector<std::uint32_t>& seen_from) {
  Network::Node& first = m_nodes[start];
  first.listed = 0;
  first.lowest = first.highest = start;
  m_pending.push_back(start);
  seen_from[start] = start;
  while (!m_pending.empty()) {
    const std::uint32_t reached = m_pending.back();
    const Network::Node& node = m_nodes[reached];
    m_pending.pop_back();
    ++first.listed;
    first.lowest = std::min(first.lowest, reached);
    first.highest = std::max(first.highest, reached);
    first.lists_conditions = first.lists_conditions || node.conditions != 0;
    for (std::uint8_t way = 0; way < node.ways; ++way) {
      if (seen_from[node.next[way]] != start) {
        seen_from[node.next[way]] = start;
        m_pending.push_back(node.next[way]);
      }
    }
  }
}

/// Counts without a walk where the ways lead to different nodes, as those of optional parts behind each other do.
/// Whether it could: `Count` is for the others.
bool ReachableLists::AddUp(std::uint32_t index) {
  Network::Node& node = m_nodes[index];
  std::uint32_t listed = 1;
  std::uint32_t lowest = index;
  std::uint32_t highest = index;
  bool conditions = node.conditions != 0;
  for (std::uint8_t way = 0; way < node.ways; ++way) {
    const Network::Node& next = m_nodes[node.next[way]];
    const bool apart = index < next.lowest || index > next.highest;
    if (m_state[node.next[way]] != State::Counted || !apart || (way == 1 && !AreApart(m_nodes[node.next[0]], next))) {
      return false;
    }
    listed += next.listed;
    lowest = std::min(lowest, next.lowest);
    highest = std::max(highest, next.highest);
    conditions = conditions || next.lists_conditions;
  }
  node.listed = listed;
  node.lowest = lowest;
  node.highest = highest;
  node.lists_conditions = conditions;
  return true;
}

bool ReachableLists::TakeSteps(std::size_t steps) {
  m_steps += steps;
  return m_steps <= MaximumSteps;
}

/// One node's list, and those of the nodes that it passes through.
bool ReachableLists::ListFrom(std::uint32_t start) {
  struct Visit {
    std::uint32_t node;
    std::uint8_t way;
    bool incomplete;
    std::size_t size; // of the list, or more: what several ways lead to counts as often
  };
  std::vector<Visit> visits;
  const auto enter = [&](std::uint32_t node) {
    m_state[node] = State::Listing;
    visits.push_back({node, 0, false, 1});
    const Network::Node& entered = m_nodes[node];
    const bool copies = entered.conditions != 0 && entered.ways > 0 && !m_nodes[entered.next[0]].repeated;
    return visits.size() <= MaximumChain && TakeSteps(visits.size() / 16 + 1) && (!copies || CopyBehind(node));
  };
  if (!enter(start)) {
    return false;
  }
  while (!visits.empty()) {
    Visit& visit = visits.back();
    const Network::Node& node = m_nodes[visit.node];
    if (visit.way < node.ways) {
      const std::uint32_t next = node.next[visit.way++];
      if (m_state[next] == State::Unknown) {
        if (!enter(next)) {
          return false;
        }
      } else if (m_state[next] == State::Listing) {
        visit.incomplete = true;
      } else {
        visit.size += m_nodes[next].listed;
      }
      continue;
    }
    const Visit done = visit;
    visits.pop_back();
    const bool unknown = done.incomplete && !visits.empty();
    const std::size_t size = std::min(done.size, m_nodes.size());
    m_nodes[done.node].listed = static_cast<std::uint32_t>(size);
    m_state[done.node] = unknown ? State::Unknown : AddUp(done.node) ? State::Counted : State::Listed;
    if (!TakeSteps(size / EntriesAStep)) {
      return false;
    }
    if (!visits.empty()) {
      visits.back().size += size;
      visits.back().incomplete = visits.back().incomplete || unknown;
    }
  }
  return true;
}

std::uint32_t ReachableLists::Copy(std::uint32_t origin, std::uint8_t conditions) {
  Network::Node node = m_nodes[origin];
  node.origin = origin;
  node.repeated = true;
  node.conditions |= conditions;
  m_nodes.push_back(node);
  m_state.push_back(State::Unknown);
  return static_cast<std::uint32_t>(m_nodes.size() - 1);
}

/// The latest of the copies made without a break that has exactly these conditions.
std::uint32_t ReachableLists::FindCopy(std::uint32_t origin, std::uint8_t conditions) {
  for (std::size_t node = m_nodes.size() - 1; node > 0 && m_nodes[node].origin != NoNode; --node) {
    ++m_steps;
    if (m_nodes[node].origin == origin && m_nodes[node].conditions == conditions) {
      return static_cast<std::uint32_t>(node);
    }
  }
  return NoNode;
}

/// What can be reached behind an assertion, as copies that have its conditions too.
bool ReachableLists::CopyBehind(std::uint32_t assertion) {
  struct Path {
    std::uint32_t origin;
    std::uint32_t copy;
    std::uint8_t conditions;
    bool second_way;
  };
  std::vector<Path> paths{{assertion, assertion, m_nodes[assertion].conditions, false}};
  while (!paths.empty()) {
    if (!TakeSteps(1) || m_nodes.size() > MaximumNodes) {
      return false;
    }
    Path& path = paths.back();
    const Network::Node origin = m_nodes[path.origin];
    const bool returns = path.origin == assertion && path.copy != path.origin; // the copy keeps its way
    if (origin.ways == 0 || (origin.ways == 1 && returns)) {
      paths.pop_back();
      continue;
    }
    if (origin.ways == 1) {
      const std::uint8_t conditions = path.conditions | origin.conditions;
      const std::uint32_t copy = Copy(origin.next[0], conditions);
      m_nodes[path.copy].next[0] = copy;
      path = {origin.next[0], copy, conditions, false};
      continue;
    }
    if (!path.second_way) {
      const std::uint32_t known = FindCopy(origin.next[0], path.conditions);
      const std::uint32_t copy = known != NoNode ? known : Copy(origin.next[0], path.conditions);
      m_nodes[path.copy].next[0] = copy;
      if (known == NoNode) {
        path.second_way = true; // afterwards
        paths.push_back({origin.next[0], copy, path.conditions, false});
        continue;
      }
    }
    const std::uint32_t copy = Copy(origin.next[1], path.conditions);
    m_nodes[path.copy].next[1] = copy;
    path = {origin.next[1], copy, path.conditions, false};
  }
  return true;
}

} // namespace Perenna::Pattern
