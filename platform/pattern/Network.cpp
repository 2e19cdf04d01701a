#include "Network.h"

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

std::uint32_t Capped(std::uint64_t size) {
  return static_cast<std::uint32_t>(std::min<std::uint64_t>(size, MaximumElements + 1));
}

bool RepeatsNothing(const Tree& tree, NodeIndex index) {
  while (tree[index].kind == Kind::Repetition) {
    if (tree[index].maximum == 0) {
      return true;
    }
    index = tree[index].first_child;
  }
  return false;
}

std::uint8_t ConditionsOf(Assertion assertion) {
  switch (assertion) {
  case Assertion::LineBegin:
    return Condition::AfterNewline;
  case Assertion::LineEnd:
    return Condition::BeforeNewline;
  case Assertion::TextBegin:
    return Condition::AtTextBegin;
  case Assertion::TextEnd:
    return Condition::AtTextEnd;
  case Assertion::WordBegin:
    return Condition::AfterNoWord | Condition::BeforeWord;
  default:
    return Condition::AfterWord | Condition::BeforeNoWord;
  }
}

} // namespace

std::vector<std::uint32_t> ExpandedSizes(const Tree& tree) {
  std::vector<std::uint32_t> sizes(tree.Size());
  for (NodeIndex index = 0; index < tree.Size(); ++index) {
    const Node& node = tree[index];
    std::uint64_t children = 0;
    std::uint64_t count = 0;
    for (NodeIndex child = node.first_child; child != NoNode; child = tree[child].next_sibling) {
      children += sizes[child];
      ++count;
    }
    switch (node.kind) {
    case Kind::Empty:
    case Kind::Concatenation:
      sizes[index] = Capped(children);
      break;
    case Kind::Group:
      sizes[index] = Capped(children + 2);
      break;
    case Kind::Alternatives:
      sizes[index] = Capped(children + count - 1);
      break;
    case Kind::Repetition:
      if (node.maximum == Unbounded) {
        sizes[index] = Capped(children * (node.minimum + 1U) + 1);
      } else {
        sizes[index] = Capped(children * node.maximum + node.maximum - node.minimum);
      }
      break;
    case Kind::Assertion:
      sizes[index] = 3; // a word boundary is a choice of two
      break;
    default:
      sizes[index] = 1;
    }
  }
  return sizes;
}

/// Builds from the end to the start, so that what follows a node is known when the node is made.
class NetworkBuilder {
public:
  NetworkBuilder(Network& network, const Tree& tree) : m_nodes(network.m_nodes), m_tree(tree) {}

  std::uint32_t Build() {
    Network::Node end;
    end.consumes = true;
    m_nodes.push_back(end);
    return Build(m_tree.Root(), 0);
  }

  /// In the order in which the C library comes to it: its lists of a loop's nodes are made anew until one is whole.
  bool ListReachable() {
    m_state.assign(m_nodes.size(), State::Unknown);
    const std::size_t originals = m_nodes.size();
    for (std::size_t place = 0; place < m_nodes.size(); ++place) {
      const std::size_t node = place < originals ? originals - 1 - place : place;
      if (m_state[node] == State::Unknown && !ListFrom(static_cast<std::uint32_t>(node))) {
        return false;
      }
    }
    return true;
  }

  bool CountListed(std::size_t& listed) {
    listed = 0;
    std::vector<std::uint32_t> seen_from(m_nodes.size(), NoNode);
    std::vector<std::uint32_t> pending;
    for (std::uint32_t start = 0; start < m_nodes.size(); ++start) {
      const std::size_t before = listed;
      bool conditions = false;
      pending.push_back(start);
      seen_from[start] = start;
      while (!pending.empty()) {
        const Network::Node& node = m_nodes[pending.back()];
        pending.pop_back();
        ++listed;
        conditions = conditions || node.conditions != 0;
        for (std::uint8_t way = 0; way < node.ways; ++way) {
          if (seen_from[node.next[way]] != start) {
            seen_from[node.next[way]] = start;
            pending.push_back(node.next[way]);
          }
        }
      }
      m_nodes[start].listed = static_cast<std::uint32_t>(listed - before);
      m_nodes[start].lists_conditions = conditions;
      if (listed > MaximumListed) {
        return false;
      }
    }
    return true;
  }

private:
  enum class State : std::uint8_t { Unknown, Listing, Listed };

  std::uint32_t Add(std::uint8_t ways, std::uint32_t first = NoNode, std::uint32_t second = NoNode) {
    Network::Node node;
    node.ways = ways;
    node.next = {first, second};
    node.repeated = m_repeating;
    m_nodes.push_back(node);
    return static_cast<std::uint32_t>(m_nodes.size() - 1);
  }

  std::uint32_t AddAssertion(std::uint8_t conditions, std::uint32_t next) {
    const std::uint32_t node = Add(1, next);
    m_nodes[node].conditions = conditions;
    return node;
  }

  /// The first node of the part, which goes on to `next`. Recurses as deep as the tree.
  std::uint32_t Build(NodeIndex index, std::uint32_t next) {
    const Node& part = m_tree[index];
    switch (part.kind) {
    case Kind::Empty:
      return next;
    case Kind::Assertion:
      return BuildAssertion(part.assertion, next);
    case Kind::Group:
      return Add(1, Build(part.first_child, Add(1, next)));
    case Kind::Concatenation: {
      const auto children = Children(part);
      for (auto child = children.rbegin(); child != children.rend(); ++child) {
        next = Build(*child, next);
      }
      return next;
    }
    case Kind::Alternatives:
      return BuildAlternatives(Children(part), next);
    case Kind::Repetition:
      return RepeatsNothing(m_tree, index) ? next : BuildRepetition(part, next);
    default: {
      // A reference may match the empty text: it is passed as well as matched.
      const std::uint32_t node = Add(part.kind == Kind::Reference ? 1 : 0, next);
      m_nodes[node].consumes = true;
      m_nodes[node].leaf = index;
      return node;
    }
    }
  }

  std::vector<NodeIndex> Children(const Node& part) const {
    std::vector<NodeIndex> children;
    for (NodeIndex child = part.first_child; child != NoNode; child = m_tree[child].next_sibling) {
      children.push_back(child);
    }
    return children;
  }

  std::uint32_t BuildAssertion(Assertion assertion, std::uint32_t next) {
    using namespace Condition;
    if (assertion != Assertion::WordBoundary && assertion != Assertion::NotWordBoundary) {
      return AddAssertion(ConditionsOf(assertion), next);
    }
    const bool boundary = assertion == Assertion::WordBoundary;
    const std::uint32_t choice = Add(2);
    const std::uint32_t second = AddAssertion(boundary ? AfterWord | BeforeNoWord : AfterNoWord | BeforeNoWord, next);
    const std::uint32_t first = AddAssertion(boundary ? AfterNoWord | BeforeWord : AfterWord | BeforeWord, next);
    m_nodes[choice].next = {first, second};
    return choice;
  }

  std::uint32_t BuildAlternatives(const std::vector<NodeIndex>& children, std::uint32_t next) {
    // A choice between all before the last and the last, and so on.
    std::uint32_t outer = NoNode;
    std::uint32_t result = NoNode;
    for (std::size_t child = children.size() - 1; child > 0; --child) {
      const std::uint32_t choice = Add(2);
      (outer == NoNode ? result : m_nodes[outer].next[0]) = choice;
      const std::uint32_t last = Build(children[child], next);
      m_nodes[choice].next[1] = last;
      outer = choice;
    }
    const std::uint32_t first = Build(children[0], next);
    m_nodes[outer].next[0] = first;
    return result;
  }

  /// One of the parts that a repetition writes out. The C library does not let what stands behind an assertion inherit
  /// its conditions in any but the first.
  std::uint32_t BuildInstance(NodeIndex index, std::uint32_t next, bool first) {
    const bool before = m_repeating;
    m_repeating = before || !first;
    const std::uint32_t start = Build(index, next);
    m_repeating = before;
    return start;
  }

  std::uint32_t BuildRepetition(const Node& part, std::uint32_t next) {
    if (part.maximum == Unbounded) {
      const std::uint32_t loop = Add(2, NoNode, next);
      const std::uint32_t body = BuildInstance(part.first_child, loop, part.minimum == 0);
      m_nodes[loop].next[0] = body;
      next = loop;
    } else {
      std::uint32_t outer = NoNode;
      std::uint32_t result = next;
      for (std::uint32_t left = part.maximum; left > part.minimum; --left) {
        const std::uint32_t choice = Add(2, NoNode, next);
        (outer == NoNode ? result : m_nodes[outer].next[0]) = choice;
        next = BuildInstance(part.first_child, next, left == 1);
        outer = choice;
      }
      if (outer != NoNode) {
        m_nodes[outer].next[0] = next;
        next = result;
      }
    }
    for (std::uint32_t left = part.minimum; left > 0; --left) {
      next = BuildInstance(part.first_child, next, left == 1);
    }
    return next;
  }

  bool TakeSteps(std::size_t steps) {
    m_steps += steps;
    return m_steps <= MaximumSteps;
  }

  /// One node's list, and those of the nodes that it passes through.
  bool ListFrom(std::uint32_t start) {
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
        if (m_state[next] == State::Listing) {
          visit.incomplete = true;
        } else if (m_state[next] == State::Listed) {
          visit.size += m_nodes[next].listed;
        } else if (m_state[next] == State::Unknown && !enter(next)) {
          return false;
        }
        continue;
      }
      const Visit done = visit;
      visits.pop_back();
      const bool unknown = done.incomplete && !visits.empty();
      m_state[done.node] = unknown ? State::Unknown : State::Listed;
      const std::size_t size = std::min(done.size, m_nodes.size());
      m_nodes[done.node].listed = static_cast<std::uint32_t>(size);
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

  bool Copy(std::uint32_t origin, std::uint8_t conditions, std::uint32_t& copy) {
    if (m_nodes.size() >= MaximumNodes) {
      return false;
    }
    Network::Node node = m_nodes[origin];
    node.origin = origin;
    node.repeated = true;
    node.conditions |= conditions;
    copy = static_cast<std::uint32_t>(m_nodes.size());
    m_nodes.push_back(node);
    m_state.push_back(State::Unknown);
    return true;
  }

  /// The latest of the copies made without a break that has exactly these conditions.
  std::uint32_t FindCopy(std::uint32_t origin, std::uint8_t conditions) {
    for (std::size_t node = m_nodes.size() - 1; node > 0 && m_nodes[node].origin != NoNode; --node) {
      ++m_steps;
      if (m_nodes[node].origin == origin && m_nodes[node].conditions == conditions) {
        return static_cast<std::uint32_t>(node);
      }
    }
    return NoNode;
  }

  /// What can be reached behind an assertion, as copies that have its conditions too.
  bool CopyBehind(std::uint32_t assertion) {
    struct Path {
      std::uint32_t origin;
      std::uint32_t copy;
      std::uint8_t conditions;
      bool second_way;
    };
    std::vector<Path> paths{{assertion, assertion, m_nodes[assertion].conditions, false}};
    while (!paths.empty()) {
      Path path = paths.back();
      paths.pop_back();
      for (bool more = true; more;) {
        if (!TakeSteps(1)) {
          return false;
        }
        const Network::Node origin = m_nodes[path.origin];
        std::uint32_t copy = NoNode;
        if (origin.ways == 0) {
          break;
        }
        if (origin.ways == 1) {
          if (path.origin == assertion && path.copy != path.origin) {
            break; // a loop back to the assertion: the copy keeps its way
          }
          path.conditions |= origin.conditions;
          if (!Copy(origin.next[0], path.conditions, copy)) {
            return false;
          }
          m_nodes[path.copy].next[0] = copy;
          path = {origin.next[0], copy, path.conditions, false};
          continue;
        }
        if (!path.second_way) {
          copy = FindCopy(origin.next[0], path.conditions);
          const bool known = copy != NoNode;
          if (!known && !Copy(origin.next[0], path.conditions, copy)) {
            return false;
          }
          m_nodes[path.copy].next[0] = copy;
          if (!known) {
            path.second_way = true;
            paths.push_back(path);
            path = {origin.next[0], copy, path.conditions, false};
            continue;
          }
        }
        if (!Copy(origin.next[1], path.conditions, copy)) {
          return false;
        }
        m_nodes[path.copy].next[1] = copy;
        path = {origin.next[1], copy, path.conditions, false};
      }
    }
    return true;
  }

  std::vector<Network::Node>& m_nodes;
  const Tree& m_tree;
  std::vector<State> m_state;
  std::size_t m_steps = 0;
  bool m_repeating = false;
};

Network::Network(const Tree& tree) {
  NetworkBuilder builder(*this, tree);
  m_start = builder.Build();
  m_complete = builder.ListReachable() && builder.CountListed(m_listed);
}

} // namespace Perenna::Pattern
