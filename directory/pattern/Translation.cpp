#include "directory/pattern/Translation.h"

#include <array>

#include "platform/pattern/Cost.h"

namespace AccessDirectory {

namespace {

using Perenna::Pattern::Assertion;
using Perenna::Pattern::Kind;
using Perenna::Pattern::Node;
using Perenna::Pattern::NodeIndex;
using Perenna::Pattern::NoNode;
using Perenna::Pattern::Tree;

/// Where a part of a match lies in the text: whether it begins at the start, and whether it ends at the end. What is
/// empty lies at one place, which both then speak of.
struct Place {
  bool at_start;
  bool at_end;
};

constexpr std::array<Place, 4> Places = {{{false, false}, {false, true}, {true, false}, {true, true}}};

std::size_t Number(bool at_start, bool at_end) {
  return (at_start ? 2U : 0U) + (at_end ? 1U : 0U);
}

/// What a part of a pattern matches, by place: which texts of one byte or more, and whether it matches without any. A
/// language that is not there is empty.
struct Part {
  std::array<std::optional<Automaton>, Places.size()> texts;
  std::array<bool, Places.size()> empty{};
  bool anchored = false; ///< the place matters
};

using Language = std::optional<Automaton>;

Language Union(const Language& left, const Language& right) {
  return !left ? right : !right ? left : Language(*left | *right);
}

Language Sequence(const Language& left, const Language& right) {
  return left && right ? Language(*left + *right) : std::nullopt;
}

/// The same at every place.
Part Everywhere(const Language& texts, bool empty) {
  Part part;
  part.texts.fill(texts);
  part.empty.fill(empty);
  return part;
}

/// Makes each place's answer by `make`, or one for all where none of the sources looks at the place.
template <class Make> Part ByPlace(bool anchored, Make make) {
  Part part;
  part.anchored = anchored;
  for (std::size_t i = 0; i < Places.size(); ++i) {
    if (i > 0 && !anchored) {
      part.texts[i] = part.texts[0];
      part.empty[i] = part.empty[0];
    } else {
      make(Places[i], part.texts[i], part.empty[i]);
    }
  }
  return part;
}

Part Concatenated(const Part& left, const Part& right) {
  return ByPlace(left.anchored || right.anchored, [&](Place place, Language& texts, bool& empty) {
    const auto [at_start, at_end] = place;
    texts = Sequence(left.texts[Number(at_start, false)], right.texts[Number(false, at_end)]);
    if (left.empty[Number(at_start, false)]) {
      texts = Union(texts, right.texts[Number(at_start, at_end)]);
    }
    if (right.empty[Number(false, at_end)]) {
      texts = Union(texts, left.texts[Number(at_start, at_end)]);
    }
    const std::size_t number = Number(at_start, at_end);
    empty = left.empty[number] && right.empty[number];
  });
}

Part United(const Part& left, const Part& right) {
  return ByPlace(left.anchored || right.anchored, [&](Place place, Language& texts, bool& empty) {
    const std::size_t number = Number(place.at_start, place.at_end);
    texts = Union(left.texts[number], right.texts[number]);
    empty = left.empty[number] || right.empty[number];
  });
}

class Translator {
public:
  explicit Translator(const std::string& pattern) : m_Pattern(pattern), m_Tree(Tree::Read(pattern)) {}

  Translation Translate() {
    const Perenna::Pattern::Judgement judgement = Perenna::Pattern::Judge(m_Pattern);
    if (judgement.refusal != nullptr) {
      return {std::nullopt, "too much for the module to match"};
    }
    if (m_Tree.GetFault() != Perenna::Pattern::Fault::None || m_Pattern.empty() || m_Pattern.front() == '\0') {
      return {Automaton::Nothing(), nullptr};
    }
    const Part whole = Read(m_Tree.Root());
    if (m_Obstacle != nullptr) {
      return {std::nullopt, m_Obstacle};
    }
    return {Found(whole), nullptr};
  }

private:
  /// The texts of one byte or more that hold a match.
  static Automaton Found(const Part& match) {
    const Automaton any = Automaton::AnyByte();
    const Automaton some = any.Repeated(1, Perenna::Pattern::Unbounded);
    Automaton found = Automaton::Nothing();
    for (const auto [at_start, at_end] : Places) {
      const std::size_t number = Number(at_start, at_end);
      if (const Language& texts = match.texts[number]) {
        const Automaton begun = at_start ? *texts : some + *texts;
        found = found | (at_end ? begun : begun + some);
      }
      if (match.empty[number] && !(at_start && at_end)) {
        found = found | (at_start || at_end ? some : any + some);
      }
    }
    return found.Minimal();
  }

  Part Refuse(const char* obstacle) {
    m_Obstacle = m_Obstacle == nullptr ? obstacle : m_Obstacle;
    return {};
  }

  /// The tree bounds how deep this recurses.
  Part Read(NodeIndex index) {
    const Node& node = m_Tree[index];
    if (m_Obstacle != nullptr) {
      return {};
    }
    switch (node.kind) {
    case Kind::Empty:
      return Everywhere(std::nullopt, true);
    case Kind::Literal:
      return Everywhere(Automaton::Text({reinterpret_cast<const char*>(&node.byte), 1}), false);
    case Kind::Set:
      return ReadSet(node);
    case Kind::Assertion:
      return ReadAssertion(node);
    case Kind::Reference:
      return Refuse("a back-reference");
    case Kind::Group:
      return Read(node.first_child);
    case Kind::Concatenation:
      return ReadConcatenation(node);
    case Kind::Alternatives:
      return ReadAlternatives(node);
    case Kind::Repetition:
      return ReadRepetition(node);
    }
    return {};
  }

  Part ReadSet(const Node& node) {
    const std::string text = m_Pattern.substr(node.span.begin, node.span.end - node.span.begin);
    // What opens the list does not count.
    if (text.front() == '[' && (text.find("[.", 1) != std::string::npos || text.find("[=", 1) != std::string::npos)) {
      return Refuse("a collating element or an equivalence class (\"[.a.]\", \"[=a=]\")");
    }
    return Everywhere(Automaton::OneOf(m_Tree.Characters(node)), false);
  }

  Part ReadAssertion(const Node& node) {
    const bool begin = node.assertion == Assertion::LineBegin || node.assertion == Assertion::TextBegin;
    if (!begin && node.assertion != Assertion::LineEnd && node.assertion != Assertion::TextEnd) {
      return Refuse(R"(a condition on words ("\b", "\B", "\<", "\>"))");
    }
    return ByPlace(true, [begin](Place place, Language& texts, bool& empty) {
      texts = std::nullopt;
      empty = begin ? place.at_start : place.at_end;
    });
  }

  Part ReadConcatenation(const Node& node) {
    Part whole = Everywhere(std::nullopt, true);
    for (NodeIndex child = node.first_child; child != NoNode; child = m_Tree[child].next_sibling) {
      if (m_Tree[child].kind == Kind::Literal) {
        whole = Concatenated(whole, ReadLiterals(child));
      } else {
        whole = Concatenated(whole, Read(child));
      }
    }
    return whole;
  }

  /// A run of literals at once; moves to the last of them.
  Part ReadLiterals(NodeIndex& child) {
    std::string text(1, static_cast<char>(m_Tree[child].byte));
    for (NodeIndex next = m_Tree[child].next_sibling; next != NoNode && m_Tree[next].kind == Kind::Literal;
         next = m_Tree[next].next_sibling) {
      text += static_cast<char>(m_Tree[next].byte);
      child = next;
    }
    return Everywhere(Automaton::Text(text), false);
  }

  Part ReadAlternatives(const Node& node) {
    Part whole;
    for (NodeIndex child = node.first_child; child != NoNode; child = m_Tree[child].next_sibling) {
      whole = United(whole, Read(child));
    }
    return whole;
  }

  Part ReadRepetition(const Node& node) {
    const Part once = Read(node.first_child);
    if (once.anchored) {
      return Refuse("an anchor under a repetition");
    }
    if (node.maximum == 0) {
      return Everywhere(std::nullopt, true);
    }
    // Turns that match nothing fill up what is missing to the minimum.
    const bool empty = once.empty[0] || node.minimum == 0;
    const std::uint32_t least = once.empty[0] || node.minimum == 0 ? 1 : node.minimum;
    return Everywhere(once.texts[0] ? Language(once.texts[0]->Repeated(least, node.maximum)) : std::nullopt, empty);
  }

  std::string m_Pattern;
  Tree m_Tree;
  const char* m_Obstacle = nullptr;
};

} // namespace

Translation Translate(const std::string& pattern) {
  return Translator(pattern.substr(0, pattern.find('\0'))).Translate();
}

} // namespace AccessDirectory
