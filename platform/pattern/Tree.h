#pragma once

#include <bitset>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Perenna::Pattern {

constexpr std::size_t MaximumGroupDepth = 250;
/// Groups and repetitions inside each other: what a walk over a tree may recurse.
constexpr std::size_t MaximumDepth = 500;
constexpr std::size_t MaximumElements = 100000;
constexpr std::uint32_t Unbounded = UINT32_MAX;

/// Bytes, as the C locale knows them.
using CharacterSet = std::bitset<256>;
using NodeIndex = std::uint32_t;
constexpr NodeIndex NoNode = UINT32_MAX;

enum class Kind : std::uint8_t {
  Empty,         ///< the empty text, as in "()" and "a|"
  Literal,       ///< one byte: `byte`
  Set,           ///< one byte of `Tree::Characters`: ".", "[...]", "\w", "\W", "\s", "\S"
  Assertion,     ///< a condition on a place between bytes: `assertion`
  Reference,     ///< the text that group `number` matched: "\1" to "\9"
  Group,         ///< "(...)": `number` counts from 1; one child
  Concatenation, ///< at least two children
  Alternatives,  ///< at least two children
  Repetition     ///< one child, `minimum` to `maximum` times
};

enum class Assertion : std::uint8_t {
  LineBegin,
  LineEnd,
  TextBegin,
  TextEnd,
  WordBoundary,
  NotWordBoundary,
  WordBegin,
  WordEnd
};

/// Bytes [begin, end) of a pattern's text.
struct Span {
  std::uint32_t begin = 0;
  std::uint32_t end = 0;
};

struct Node {
  Kind kind = Kind::Empty;
  Assertion assertion = Assertion::LineBegin;
  unsigned char byte = 0;
  Span span;
  NodeIndex first_child = NoNode;
  NodeIndex next_sibling = NoNode;
  std::uint32_t number = 0;
  std::uint32_t minimum = 0;
  std::uint32_t maximum = 0; ///< or `Unbounded`
};

/// A backslash of the pattern. In a bracket list it stands for itself and the next byte is a byte like any other;
/// elsewhere `byte` is the one that it escapes.
struct Escape {
  Span span;
  char byte;
  bool in_bracket_list;
};

enum class Fault : std::uint8_t {
  None,
  Malformed, ///< the C library refuses it with an explanation of its own
  TooDeep,   ///< more than `MaximumGroupDepth` or `MaximumDepth`
  TooLong    ///< more than twice `MaximumElements` nodes
};

/// What a pattern says: the syntax tree of a POSIX extended regular expression (IEEE Std 1003.1, 9.4) as the GNU C
/// library reads it with REG_EXTENDED | REG_NEWLINE in the C locale, with its extensions "\w \W \s \S \b \B \< \> \`
/// \'" and back-references. A value: copied, moved and read on several threads freely. Children come before their
/// parents in the order of indices, so that sums over a tree need no recursion.
class Tree {
public:
  /// Reads a pattern, up to its first NUL. A pattern with a fault has the tree of what stands before the fault.
  static Tree Read(std::string_view text);

  Fault GetFault() const noexcept { return m_fault; }
  /// Where reading ended: the byte that cannot stand where it stands, or the length.
  std::size_t End() const noexcept { return m_end; }

  NodeIndex Root() const noexcept { return m_root; }
  std::size_t Size() const noexcept { return m_nodes.size(); }
  const Node& operator[](NodeIndex index) const { return m_nodes[index]; }
  /// The bytes that a `Literal` or `Set` matches.
  CharacterSet Characters(const Node& node) const;

  const std::vector<Escape>& Escapes() const noexcept { return m_escapes; }
  std::uint32_t Groups() const noexcept { return m_groups; }

  /// The alternatives of the whole pattern: its only node if there is no "|" outside of groups.
  std::vector<NodeIndex> TopAlternatives() const;

  /// The bytes with which each match must begin, and whose first byte must follow a line's begin: what stands behind a
  /// leading "^". Empty when there is none or it cannot be told.
  std::string LiteralBeginning() const;

private:
  friend class Reader;

  std::vector<Node> m_nodes;
  std::vector<CharacterSet> m_sets;
  std::vector<Escape> m_escapes;
  NodeIndex m_root = NoNode;
  std::uint32_t m_groups = 0;
  std::size_t m_end = 0;
  Fault m_fault = Fault::None;
};

} // namespace Perenna::Pattern
