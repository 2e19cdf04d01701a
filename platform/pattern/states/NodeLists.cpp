#include "NodeLists.h"

#include <algorithm>

namespace Perenna::Pattern {

namespace {

constexpr std::size_t MaximumListed = 2000000;

} // namespace

NodeLists::NodeLists(const Network& network, const Alphabet& alphabet)
    : m_network(network), m_behind(network.Size()), m_reached(network.Size()) {
  std::vector<std::uint32_t> known(network.Size(), NoNode);
  m_complete = ListFrom(network.Start(), known, m_start);
  for (std::uint32_t node = 0; node < network.Size() && m_complete; ++node) {
    m_complete = network[node].leaf == NoNode || ListFrom(network[node].next[0], known, m_behind[node]);
  }
  KeepByContext();
  if (m_complete) {
    FindAnchor(alphabet);
  }
}

/// Lists what can be reached from a node without matching a byte. False when there is too much.
bool NodeLists::ListFrom(std::uint32_t node, std::vector<std::uint32_t>& known, List& list) {
  list = {known[node], m_network[node].listed, m_network[node].lowest};
  if (known[node] != NoNode) {
    return true;
  }
  list.begin = known[node] = static_cast<std::uint32_t>(m_listed.size());
  if (list.begin + list.size > MaximumListed) {
    return false;
  }
  m_reached.Clear();
  m_reached.Insert(node);
  m_listed.push_back(node);
  for (std::size_t place = list.begin; place < m_listed.size(); ++place) {
    const Network::Node& reached = m_network[m_listed[place]];
    for (std::uint8_t way = 0; way < reached.ways; ++way) {
      if (m_reached.Insert(reached.next[way])) {
        m_listed.push_back(reached.next[way]);
      }
    }
  }
  return true;
}

void NodeLists::KeepByContext() {
  for (std::size_t place = 0; place < Contexts; ++place) {
    const auto context = static_cast<Context>(place);
    std::uint8_t broken = context == Context::Word ? Condition::AfterNoWord : Condition::AfterWord;
    if (context != Context::Newline && context != Context::TextBegin) {
      broken |= Condition::AfterNewline;
    }
    if (context != Context::TextBegin) {
      broken |= Condition::AtTextBegin;
    }
    m_kept[place].assign(m_network.Size() / 64 + 1, 0);
    for (std::size_t node = 0; node < m_network.Size(); ++node) {
      const bool kept = (m_network[node].conditions & broken) == 0;
      m_kept[place][node / 64] |= kept ? std::uint64_t{1} << node % 64 : 0;
    }
  }
}

void NodeLists::FindAnchor(const Alphabet& alphabet) {
  const std::size_t newline = alphabet.KindOf('\n');
  m_anchored = std::none_of(alphabet.Masks().begin(), alphabet.Masks().end(),
                            [&](const Alphabet::Mask& mask) { return mask.test(newline); });
  for (std::size_t place = m_start.begin; place < m_start.begin + m_start.size; ++place) {
    const std::uint32_t node = m_listed[place];
    for (const Context context : {Context::Other, Context::Word}) {
      const bool kept = (m_kept[static_cast<std::size_t>(context)][node / 64] >> node % 64 & 1U) != 0;
      m_anchored = m_anchored && !(kept && m_network[node].consumes);
    }
  }
}

} // namespace Perenna::Pattern
