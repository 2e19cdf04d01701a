#include "Walks.h"

#include <algorithm>

namespace Perenna::Pattern {

void Walks::AddState(double cost) {
  m_costs.push_back(cost);
  m_begins.push_back(m_ways.size());
}

/// Finds the strongly connected components, those that lead nowhere else first (Tarjan's algorithm).
Walks::Costs Walks::Costliest() const {
  constexpr std::uint32_t Unseen = 0;
  constexpr std::uint32_t Done = UINT32_MAX;
  struct Visit {
    std::uint32_t state;
    std::size_t way;
  };
  const auto end_of = [this](std::size_t state) {
    return state + 1 < m_begins.size() ? m_begins[state + 1] : m_ways.size();
  };
  std::vector<std::uint32_t> seen(m_costs.size(), Unseen);
  std::vector<std::uint32_t> earliest(m_costs.size());
  std::vector<double> behind(m_costs.size()); // of each state and what it leads to, what is paid once
  std::vector<std::uint32_t> open;
  std::vector<Visit> visits;
  std::uint32_t count = 0;
  Costs costliest;
  for (std::uint32_t start = 0; start < m_costs.size(); ++start) {
    if (seen[start] == Unseen) {
      visits.push_back({start, m_begins[start]});
    }
    while (!visits.empty()) {
      Visit& visit = visits.back();
      const std::uint32_t state = visit.state;
      if (seen[state] == Unseen) {
        seen[state] = earliest[state] = ++count;
        open.push_back(state);
      }
      if (visit.way < end_of(state)) {
        const std::uint32_t to = m_ways[visit.way];
        if (seen[to] == Unseen) {
          visits.push_back({to, m_begins[to]}); // and looks at this way again
          continue;
        }
        ++visit.way;
        earliest[state] = seen[to] == Done ? earliest[state] : std::min(earliest[state], earliest[to]);
        continue;
      }
      visits.pop_back();
      if (earliest[state] != seen[state]) {
        continue;
      }
      const auto first = std::find(open.rbegin(), open.rend(), state).base() - 1;
      double once = 0;
      double dearest = 0;
      bool loop = open.end() - first > 1;
      for (auto member = first; member != open.end(); ++member) {
        dearest = std::max(dearest, m_costs[*member]);
        for (std::size_t way = m_begins[*member]; way < end_of(*member); ++way) {
          loop = loop || m_ways[way] == *member;
          once = std::max(once, behind[m_ways[way]]);
        }
      }
      if (loop) {
        costliest.a_step = std::max(costliest.a_step, dearest);
      } else {
        once += dearest;
      }
      for (auto member = first; member != open.end(); ++member) {
        behind[*member] = once;
        seen[*member] = Done;
      }
      open.erase(first, open.end());
      costliest.once = std::max(costliest.once, once);
    }
  }
  return costliest;
}

} // namespace Perenna::Pattern
