// Spellings that other regular expressions know and the module's, the C library's, reads otherwise or not at all. What
// each is taken for was found by trying it.

#include <array>
#include <cstring>

#include "directory/lint/pattern/PatternReader.h"
#include "directory/text/Text.h"
#include "platform/pattern/network/ExpandedSizes.h"
#include "platform/pattern/network/Network.h"

namespace AccessDirectory {

namespace {

constexpr std::size_t MaximumConstructs = 100; // read again after each

struct Spelling {
  char byte;
  const char* matches; ///< in words; null where the byte is matched itself
  const char* instead; ///< null where there is no other spelling
};

// Outside of bracket lists.
constexpr std::array<Spelling, 16> Escapes = {{{'d', nullptr, "[0-9]"},
                                               {'D', nullptr, "[^0-9]"},
                                               {'A', nullptr, "^"},
                                               {'z', nullptr, "$"},
                                               {'Z', nullptr, "$"},
                                               {'w', "an ASCII letter, a digit or \"_\"", "[[:alnum:]_]"},
                                               {'W', "anything but ASCII letters, digits and \"_\"", "[^[:alnum:]_]"},
                                               {'s', "white space, which no request target holds", "[[:space:]]"},
                                               {'S', "anything but white space", "[^[:space:]]"},
                                               {'`', "the start", "^"},
                                               {'\'', "the end", "$"},
                                               {'b', "the edge of a word", nullptr},
                                               {'B', "a place that is no edge of a word", nullptr},
                                               {'<', "the start of a word", nullptr},
                                               {'>', "the end of a word", nullptr},
                                               {'0', nullptr, nullptr}}};

// Inside of them.
constexpr std::array<Spelling, 3> EscapesInList = {
    {{'d', nullptr, "0-9"}, {'w', nullptr, "[:alnum:]_"}, {'s', nullptr, "[:space:]"}}};

template <std::size_t Size> const Spelling* Lookup(const std::array<Spelling, Size>& spellings, char byte) {
  for (const Spelling& spelling : spellings) {
    if (spelling.byte == byte) {
      return &spelling;
    }
  }
  return nullptr;
}

bool IsLetter(char byte) {
  return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z');
}

std::string Spelled(const std::string& text) {
  return '"' + Shown(text, Backslash::Kept) + '"';
}

} // namespace

/// The C library takes "(?" for a repetition of nothing.
void PatternReader::ReadConstruct() {
  std::string text = m_Pattern;
  const auto fault = [&text](const Perenna::Pattern::Tree& tree) {
    const std::size_t end = tree.End();
    return tree.GetFault() == Perenna::Pattern::Fault::Malformed && end > 0 && end < text.size() &&
                   text.compare(end - 1, 2, "(?") == 0
               ? end
               : std::string::npos;
  };
  std::size_t at = fault(m_Tree);
  if (at == std::string::npos) {
    return;
  }
  const char next = at + 1 < text.size() ? text[at + 1] : '\0';
  if (next != ':') {
    const bool looks = next == '=' || next == '!' || next == '<';
    Find(LintKinds::FilterConstruct,
         looks ? Spelled(text.substr(at - 1, 3)) + " looks around or names a group only in other regular expressions: "
                                                   "this pattern is malformed and never applies"
               : Spelled(text.substr(at - 1, 3)) + " sets an option only in other regular expressions: this pattern is "
                                                   "malformed and never applies",
         looks ? "say what is to match, and what is not with a filter of the other action"
               : "for both cases of a letter write a bracket list: \"[aA]\"");
    return;
  }
  Perenna::Pattern::Tree tree = m_Tree;
  for (std::size_t i = 0; i < MaximumConstructs && at != std::string::npos && text.compare(at, 2, "?:") == 0; ++i) {
    text.erase(at, 2);
    tree = Perenna::Pattern::Tree::Read(text);
    at = fault(tree);
  }
  bool numbered = tree.GetFault() != Perenna::Pattern::Fault::None;
  for (NodeIndex index = 0; index < tree.Size(); ++index) {
    numbered = numbered || tree[index].kind == Kind::Reference; // would name another group now
  }
  m_Reading.better = numbered ? "" : text;
  Find(LintKinds::FilterConstruct,
       "\"(?:\" groups only in other regular expressions: this pattern is malformed and never applies; \"(\" groups "
       "here",
       numbered ? "write \"(\", and number references anew" : "");
}

void PatternReader::ReadEscapes() {
  std::size_t read = 0; // behind the last byte that was looked at: of "[\\]" the second backslash is the escaped one
  for (const Perenna::Pattern::Escape& escape : m_Tree.Escapes()) {
    if (!escape.in_bracket_list) {
      ReadEscape(escape);
    } else if (escape.span.begin >= read) {
      ReadEscapeInList(escape);
      read = escape.span.begin + 2U;
    }
  }
}

void PatternReader::ReadEscape(const Perenna::Pattern::Escape& escape) {
  const Spelling* const known = Lookup(Escapes, escape.byte);
  if (known == nullptr && !IsLetter(escape.byte)) {
    return; // stands for itself everywhere, or refers to a group
  }
  const std::string text = Spelled(Text(escape.span.begin, escape.span.end));
  const char* const instead = known == nullptr ? nullptr : known->instead;
  const char* const matches = known == nullptr ? nullptr : known->matches;
  if (instead != nullptr) {
    Change(escape.span.begin, escape.span.end, instead);
  }
  if (matches != nullptr) {
    Find(LintKinds::FilterDialect,
         text + " is an extension of the GNU C library" + (instead == nullptr ? "" : " for " + Spelled(instead)) +
             "; it matches " + matches,
         instead == nullptr ? "keep it, as long as no other regular expressions are to read the pattern" : "");
    return;
  }
  Find(LintKinds::FilterEscape,
       text + " matches the " + (IsLetter(escape.byte) ? "letter " : "digit ") + Spelled(std::string(1, escape.byte)) +
           (instead == nullptr ? "" : "; " + Spelled(instead) + " is what other regular expressions mean by it"),
       instead == nullptr ? "write what is meant without the backslash" : "");
}

void PatternReader::ReadEscapeInList(const Perenna::Pattern::Escape& escape) {
  const std::string text = Spelled("\\" + std::string(1, escape.byte));
  const std::size_t begin = escape.span.begin;
  if (escape.byte == '\\') {
    return;
  }
  if (escape.byte == ']' || escape.byte == '-') {
    Find(LintKinds::FilterEscape,
         text + " in a bracket list is a backslash and " +
             (escape.byte == ']' ? "the end of the list" : "a \"-\", which makes a range of its neighbours"),
         escape.byte == ']' ? "put the \"]\" first: \"[]a]\"" : "put the \"-\" last: \"[a-]\"");
    return;
  }
  const Spelling* const known = Lookup(EscapesInList, escape.byte);
  const bool plain = IsLetter(escape.byte) || (escape.byte >= '0' && escape.byte <= '9') || escape.byte == '^';
  if (!plain) {
    Change(begin, begin + 1, "");
    Find(LintKinds::FilterDialect, text + " in a bracket list matches a backslash too, which stands for itself there");
    return;
  }
  if (known != nullptr) {
    Change(begin, begin + 2, known->instead);
  }
  Find(LintKinds::FilterEscape,
       text + " in a bracket list matches a backslash and " + Spelled(std::string(1, escape.byte)),
       known == nullptr ? "write what is meant without the backslash" : "");
}

void PatternReader::ReadRepetitions() {
  for (NodeIndex index = 0; index < m_Tree.Size(); ++index) {
    const Node& node = At(index);
    if (node.kind == Kind::Repetition && At(node.first_child).kind == Kind::Repetition) {
      ReadRepetition(node, At(node.first_child));
    }
  }
}

/// Of what a repetition writes out, the C library lets conditions hold in the first part only, but for those that end
/// a part: "(^a|b){2}" matches "ba".
void PatternReader::ReadRepeatedAssertions() {
  using namespace Perenna::Pattern;
  bool any = false;
  for (NodeIndex index = 0; index < m_Tree.Size(); ++index) {
    any = any || At(index).kind == Kind::Assertion;
  }
  if (!any || ExpandedSizes(m_Tree)[m_Tree.Root()] > MaximumElements) {
    return;
  }
  const Network network(m_Tree);
  bool lost = false;
  for (std::size_t node = 0; network.Complete() && node < network.Size() && !lost; ++node) {
    const Network::Node& one = network[node];
    const bool asks = one.conditions != 0 && one.origin == NoNode && one.ways > 0;
    lost = asks && network[one.next[0]].repeated && network[one.next[0]].origin == NoNode;
  }
  if (lost) {
    Find(LintKinds::FilterAssertion,
         "a condition such as \"^\" stands in a repetition, where it holds the first time only: the pattern matches "
         "more "
         "than it says",
         "write the parts of the repetition one after the other");
  }
}

/// "a+?" is not lazy: it repeats the repetition, and so matches nothing as well.
void PatternReader::ReadRepetition(const Node& outer, const Node& inner) {
  const std::size_t inner_end = inner.span.end;
  const std::size_t operand_end = At(inner.first_child).span.end;
  const std::string text = Spelled(Text(operand_end, outer.span.end));
  const bool optional = Text(inner_end, outer.span.end) == "?";
  const bool again = Text(inner_end, outer.span.end) == "+";
  const bool plus_or_star = inner.minimum <= 1 && inner.maximum == Perenna::Pattern::Unbounded;
  if (!optional && !again) {
    return;
  }
  if ((optional && inner.minimum == 0) || (again && plus_or_star)) {
    Change(inner_end, outer.span.end, "");
    Find(LintKinds::FilterDialect, text + " matches the same as without its last character, here");
    return;
  }
  const bool exact = !m_Allows && optional && plus_or_star;
  if (m_Allows) {
    Change(inner_end, outer.span.end, "");
  } else if (exact) {
    Change(operand_end, outer.span.end, "*");
  }
  Find(LintKinds::FilterQuantifier,
       text +
           (optional ? " matches nothing as well: \"?\" makes optional what stands before it"
                     : " repeats the repetition once more, any number of times") +
           (exact ? "; \"*\" says so" : ""),
       m_Allows || exact ? "" : "take the last character away, if it need not refuse that too");
}

} // namespace AccessDirectory
