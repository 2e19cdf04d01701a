#include "directory/lint/pattern/PatternSamples.h"

#include <algorithm>

#include "platform/pattern/Tree.h"

namespace AccessDirectory {

namespace {

using Perenna::Pattern::Kind;
using Perenna::Pattern::Node;
using Perenna::Pattern::NodeIndex;
using Perenna::Pattern::NoNode;
using Perenna::Pattern::Tree;

constexpr std::size_t MaximumSamples = 16; // of one pattern: each is tried on many others
constexpr std::size_t MaximumBytes = 2000; // of one

/// Spells a text that a pattern asks for: of alternatives the first, of repetitions as many turns as there must be and
/// some more. The tree bounds how deep it recurses.
class Speller {
public:
  Speller(const Tree& tree, std::uint32_t more) : m_Tree(tree), m_More(more) {}

  std::string Spell() {
    Add(m_Tree.Root());
    return m_Text.rfind('/', 0) == 0 ? m_Text : '/' + m_Text;
  }

private:
  void Add(NodeIndex index) {
    const Node& node = m_Tree[index];
    switch (node.kind) {
    case Kind::Literal:
    case Kind::Set:
      m_Text += AnyOf(m_Tree.Characters(node));
      break;
    case Kind::Group:
    case Kind::Alternatives:
      Add(node.first_child);
      break;
    case Kind::Concatenation:
      for (NodeIndex child = node.first_child; child != NoNode; child = m_Tree[child].next_sibling) {
        Add(child);
      }
      break;
    case Kind::Repetition: {
      const std::uint32_t turns = std::min(node.maximum, node.minimum + m_More);
      for (std::uint32_t turn = 0; turn < turns && m_Text.size() < MaximumBytes; ++turn) {
        Add(node.first_child);
      }
      break;
    }
    default: // of no length
      break;
    }
  }

  static char AnyOf(const Perenna::Pattern::CharacterSet& bytes) {
    for (const char byte : {'a', 'A', '1', '-', '_', '.', '~', '/'}) {
      if (bytes[static_cast<unsigned char>(byte)]) {
        return byte;
      }
    }
    unsigned char byte = FirstTargetByte;
    while (byte < LastTargetByte && !bytes[byte]) {
      ++byte;
    }
    return static_cast<char>(byte);
  }

  const Tree& m_Tree;
  std::uint32_t m_More;
  std::string m_Text;
};

} // namespace

void PatternSamples::Guess(PatternNumber pattern, Texts& samples) const {
  const Tree tree = Tree::Read(m_Patterns.Text(pattern));
  for (const std::uint32_t more : {0U, 1U, 7U}) {
    const std::string start = Speller(tree, more).Spell();
    for (const char* const rest : {"", "a", "/a"}) {
      const std::string target = start + rest;
      if (std::find(samples.begin(), samples.end(), target) == samples.end() && m_Rules.admits &&
          m_Rules.admits(target) && m_Patterns.Matches(pattern, target)) {
        samples.push_back(target);
      }
    }
  }
}

const PatternSamples::Texts& PatternSamples::Of(PatternNumber pattern) {
  const auto [entry, is_new] = m_Samples.emplace(pattern, Texts());
  if (is_new) {
    Guess(pattern, entry->second);
  }
  return entry->second;
}

void PatternSamples::Add(PatternNumber pattern, const std::string& target) {
  Texts& samples = m_Samples[pattern];
  if (samples.size() < MaximumSamples && std::find(samples.begin(), samples.end(), target) == samples.end()) {
    samples.push_back(target);
  }
}

} // namespace AccessDirectory
