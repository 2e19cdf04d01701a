#include "Beginning.h"

#include <vector>

namespace Perenna::Pattern {

namespace {

constexpr std::size_t MaximumBytes = 64;
constexpr std::size_t MaximumSteps = 300000;

/// What can stand at each of the first places of a match, up to the one where the first can end.
std::vector<Alphabet::Mask> Beginning(const Tree& tree, const Network& network, const Alphabet& alphabet) {
  std::vector<Alphabet::Mask> beginning;
  std::vector<std::uint32_t> reached{network.Start()};
  std::vector<std::size_t> seen_at(network.Size(), 0);
  std::size_t steps = 0;
  while (beginning.size() < MaximumBytes) {
    Alphabet::Mask mask;
    std::vector<std::uint32_t> next;
    for (std::size_t place = 0; place < reached.size(); ++place) {
      const Network::Node& node = network[reached[place]];
      if (node.consumes) {
        if (node.leaf == NoNode || tree[node.leaf].kind == Kind::Reference || ++steps > MaximumSteps) {
          return beginning;
        }
        mask |= alphabet.Masks()[alphabet.MaskOf(reached[place])];
        next.push_back(node.next[0]);
      }
      for (std::uint8_t way = 0; way < node.ways; ++way) {
        if (seen_at[node.next[way]] != beginning.size() + 1) {
          seen_at[node.next[way]] = beginning.size() + 1;
          reached.push_back(node.next[way]);
        }
      }
    }
    beginning.push_back(mask);
    reached.clear();
    for (const std::uint32_t node : next) {
      if (seen_at[node] != beginning.size() + 1) {
        seen_at[node] = beginning.size() + 1;
        reached.push_back(node);
      }
    }
  }
  return beginning;
}

} // namespace

std::size_t DistanceOfMatches(const Tree& tree, const Network& network, const Alphabet& alphabet) {
  const auto beginning = Beginning(tree, network, alphabet);
  for (std::size_t distance = 1; distance < beginning.size(); ++distance) {
    bool fits = true;
    for (std::size_t place = distance; place < beginning.size() && fits; ++place) {
      fits = (beginning[place] & beginning[place - distance]).any();
    }
    if (fits) {
      return distance;
    }
  }
  return beginning.empty() ? 1 : beginning.size();
}

} // namespace Perenna::Pattern
