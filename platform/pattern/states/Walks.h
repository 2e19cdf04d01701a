#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Perenna::Pattern {

/// What walks from state to state cost at most, each state costing something whenever it is come to.
class Walks {
public:
  struct Costs {
    double once = 0;   ///< of the states that no way leads back to
    double a_step = 0; ///< and of the others
  };

  /// The states come in the order of their indices, each followed by its ways, which may lead to states to come.
  void AddState(double cost);
  void AddWay(std::uint32_t to) { m_ways.push_back(to); }

  /// No walk takes more of either.
  Costs Costliest() const;

private:
  std::vector<double> m_costs;
  std::vector<std::size_t> m_begins; ///< of each state's ways in `m_ways`
  std::vector<std::uint32_t> m_ways;
};

} // namespace Perenna::Pattern
