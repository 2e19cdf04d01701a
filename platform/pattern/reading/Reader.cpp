#include <algorithm>

#include "BracketList.h"
#include "Bounds.h"
#include "Escapes.h"
#include "platform/pattern/Tree.h"

namespace Perenna::Pattern {

namespace {

bool IsRepetition(char byte) {
  return byte == '*' || byte == '+' || byte == '?' || byte == '{';
}

} // namespace

/// Reads a pattern from left to right with a stack of its own: a text of open groups cannot exhaust the thread's.
class Reader {
public:
  explicit Reader(std::string_view text) : m_text(text.substr(0, text.find('\0'))) {}

  Tree Read() {
    m_open.push_back({});
    while (m_position < m_text.size() && m_tree.m_fault == Fault::None) {
      ReadNext();
    }
    if (m_open.size() > 1 && m_tree.m_fault == Fault::None) {
      m_tree.m_fault = Fault::Malformed;
    }
    m_tree.m_end = m_position;
    while (m_open.size() > 1) {
      m_items.push_back(EndGroup());
    }
    m_tree.m_root = EndAlternatives();
    return std::move(m_tree);
  }

private:
  /// An open group, or the whole. Its alternatives and then the items of the last one lie on `m_items`.
  struct Open {
    std::uint32_t begin;
    std::uint32_t number;
    std::size_t alternatives; ///< index of the first in `m_items`
    std::size_t items;        ///< index of the last alternative's first item
    std::uint32_t item_begin; ///< where the last alternative's text begins
    std::uint32_t completed_before;
    std::uint32_t completed_by_others;
  };

  std::uint32_t At() const { return static_cast<std::uint32_t>(m_position); }
  char Peek() const { return m_position < m_text.size() ? m_text[m_position] : '\0'; }

  void Fail(Fault fault) {
    if (m_tree.m_fault == Fault::None) {
      m_tree.m_fault = fault;
    }
  }

  NodeIndex Add(Kind kind, std::uint32_t begin, std::size_t depth = 0) {
    if (m_tree.m_nodes.size() >= 2 * MaximumElements) {
      Fail(Fault::TooLong);
    }
    if (depth > MaximumDepth) {
      Fail(Fault::TooDeep);
    }
    Node node;
    node.kind = kind;
    node.span = {begin, At()};
    m_tree.m_nodes.push_back(node);
    m_depths.push_back(static_cast<std::uint16_t>(std::min<std::size_t>(depth, MaximumDepth + 1)));
    return static_cast<NodeIndex>(m_tree.m_nodes.size() - 1);
  }

  void ReadNext() {
    const std::uint32_t begin = At();
    switch (m_text[m_position]) {
    case '|':
      EndAlternative();
      ++m_position;
      m_open.back().item_begin = At();
      // What another alternative captured cannot be referred to in this one.
      m_open.back().completed_by_others |= m_completed;
      m_completed = m_open.back().completed_before;
      return;
    case '(':
      BeginGroup();
      return;
    case ')':
      if (m_open.size() > 1) {
        ++m_position;
        ReadRepetitions(EndGroup());
        return;
      }
      ReadLiteral(begin, ')');
      return;
    case '*':
    case '+':
    case '?':
    case '{':
      Fail(Fault::Malformed); // repeats nothing
      return;
    case '^':
    case '$':
      ++m_position;
      AddAssertion(begin, m_text[begin] == '^' ? Assertion::LineBegin : Assertion::LineEnd);
      return;
    case '[':
      ReadList(begin);
      return;
    case '.':
      ++m_position;
      AddSet(begin, CharacterSet().set('\n').set(0).flip());
      return;
    case '\\':
      ReadEscape(begin);
      return;
    default:
      ReadLiteral(begin, m_text[m_position]);
    }
  }

  void ReadLiteral(std::uint32_t begin, char byte) {
    ++m_position;
    const NodeIndex node = Add(Kind::Literal, begin);
    m_tree.m_nodes[node].byte = static_cast<unsigned char>(byte);
    ReadRepetitions(node);
  }

  void AddSet(std::uint32_t begin, const CharacterSet& set) {
    const NodeIndex node = Add(Kind::Set, begin);
    m_tree.m_nodes[node].number = static_cast<std::uint32_t>(m_tree.m_sets.size());
    m_tree.m_sets.push_back(set);
    ReadRepetitions(node);
  }

  void AddAssertion(std::uint32_t begin, Assertion assertion) {
    const NodeIndex node = Add(Kind::Assertion, begin);
    m_tree.m_nodes[node].assertion = assertion;
    m_items.push_back(node); // cannot be repeated: "^*" is malformed
  }

  void ReadList(std::uint32_t begin) {
    ++m_position;
    const auto set = ReadBracketList(m_text, m_position);
    for (std::size_t at = begin; at < m_position; ++at) {
      if (m_text[at] == '\\') {
        const auto place = static_cast<std::uint32_t>(at);
        m_tree.m_escapes.push_back({{place, place + 1}, at + 1 < m_position ? m_text[at + 1] : '\0', true});
      }
    }
    if (!set) {
      Fail(Fault::Malformed);
      return;
    }
    AddSet(begin, *set);
  }

  void ReadEscape(std::uint32_t begin) {
    ++m_position;
    if (m_position == m_text.size()) {
      Fail(Fault::Malformed);
      return;
    }
    const char byte = m_text[m_position];
    m_tree.m_escapes.push_back({{begin, At() + 1}, byte, false});
    if (byte >= '1' && byte <= '9') {
      ReadReference(begin, static_cast<std::uint32_t>(byte - '0'));
      return;
    }
    if (const auto assertion = EscapedAssertion(byte)) {
      ++m_position;
      AddAssertion(begin, *assertion);
      return;
    }
    if (const auto set = EscapedSet(byte)) {
      ++m_position;
      AddSet(begin, *set);
      return;
    }
    ReadLiteral(begin, byte);
  }

  void ReadReference(std::uint32_t begin, std::uint32_t number) {
    if ((m_completed >> number & 1U) == 0) {
      Fail(Fault::Malformed);
      return;
    }
    ++m_position;
    const NodeIndex node = Add(Kind::Reference, begin);
    m_tree.m_nodes[node].number = number;
    ReadRepetitions(node);
  }

  void BeginGroup() {
    if (m_open.size() > MaximumGroupDepth) {
      Fail(Fault::TooDeep);
      return;
    }
    const std::uint32_t begin = At();
    ++m_position;
    m_open.push_back({begin, ++m_tree.m_groups, m_items.size(), m_items.size(), At(), m_completed, 0});
  }

  NodeIndex EndGroup() {
    const NodeIndex inner = EndAlternatives();
    const Open group = m_open.back();
    m_open.pop_back();
    if (group.number <= 9) {
      m_completed |= 1U << group.number;
    }
    const NodeIndex node = Add(Kind::Group, group.begin, m_depths[inner] + 1U);
    m_tree.m_nodes[node].number = group.number;
    m_tree.m_nodes[node].first_child = inner;
    return node;
  }

  /// Makes one node of what lies on `m_items` from `first` on.
  NodeIndex Join(Kind kind, std::size_t first, std::uint32_t begin) {
    if (m_items.size() == first) {
      return Add(Kind::Empty, begin);
    }
    if (m_items.size() == first + 1) {
      const NodeIndex only = m_items.back();
      m_items.pop_back();
      return only;
    }
    std::uint16_t depth = 0;
    for (std::size_t item = first; item < m_items.size(); ++item) {
      depth = std::max(depth, m_depths[m_items[item]]);
      if (item + 1 < m_items.size()) {
        m_tree.m_nodes[m_items[item]].next_sibling = m_items[item + 1];
      }
    }
    const NodeIndex node = Add(kind, begin, depth);
    m_tree.m_nodes[node].first_child = m_items[first];
    m_items.resize(first);
    return node;
  }

  void EndAlternative() {
    Open& open = m_open.back();
    m_items.push_back(Join(Kind::Concatenation, open.items, open.item_begin));
    open.items = m_items.size();
  }

  NodeIndex EndAlternatives() {
    EndAlternative();
    m_completed |= m_open.back().completed_by_others;
    const Open& open = m_open.back();
    return Join(Kind::Alternatives, open.alternatives, open.number == 0 ? 0 : open.begin + 1);
  }

  void ReadRepetitions(NodeIndex node) {
    while (IsRepetition(Peek()) && m_tree.m_fault == Fault::None) {
      std::uint32_t minimum = Peek() == '+' ? 1 : 0;
      std::uint32_t maximum = Peek() == '?' ? 1 : Unbounded;
      if (Peek() == '{' && !ReadBounds(m_text, m_position, minimum, maximum)) {
        Fail(Fault::Malformed);
        break;
      }
      ++m_position;
      const NodeIndex repetition = Add(Kind::Repetition, m_tree.m_nodes[node].span.begin, m_depths[node] + 1U);
      Node& added = m_tree.m_nodes[repetition];
      added.first_child = node;
      added.minimum = minimum;
      added.maximum = maximum;
      node = repetition;
    }
    m_items.push_back(node);
  }

  std::string_view m_text;
  std::size_t m_position = 0;
  Tree m_tree;
  std::vector<std::uint16_t> m_depths; ///< of each node
  std::vector<NodeIndex> m_items;
  std::vector<Open> m_open;
  std::uint32_t m_completed = 0; ///< bit n: group n may be referred to
};

Tree Tree::Read(std::string_view text) {
  return Reader(text).Read();
}

} // namespace Perenna::Pattern
