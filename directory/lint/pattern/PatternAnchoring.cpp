// What a pattern matches of a request target: where it begins and ends, and whether it can match at all. A target
// begins with "/" and holds no line break, so that "^" is its start and "$" its end.

#include <algorithm>
#include <cctype>

#include "PN_Regex.h"
#include "directory/lint/pattern/PatternReader.h"

namespace AccessDirectory {

namespace {

// Where a path or one of its names ends, whether or not the server hands over the query.
constexpr const char* EndOfName = "([/?]|$)";

} // namespace

std::string WhyNamesMustEnd(const std::string& longer) {
  return "the pattern does not say where the name ends: " + longer + "; with \"" + EndOfName + "\" the name ends there";
}

/// Held against targets of every kind rather than derived: the pattern says nothing of its own about "every".
bool PatternReader::MatchesEveryTarget() const {
  if (m_Tree.LiteralBeginning().rfind('/', 0) == 0) {
    return false; // says plainly what it matches
  }
  const Perenna::RegularExpression compiled(m_Pattern);
  std::string all = "/";
  for (char byte = '!'; byte <= '~'; ++byte) {
    all += byte;
    all += '/';
  }
  if (!compiled.match("/") || !compiled.match(all)) {
    return false;
  }
  for (char byte = '!'; byte <= '~'; ++byte) {
    const std::string name(3, byte);
    if (!compiled.match("/" + name)) {
      return false;
    }
  }
  return true;
}

/// True when no request can match: nothing else is worth saying then.
bool PatternReader::ReadTarget() {
  if (m_Method == Perenna::METH_CONNECT) {
    return true; // its target is a host and a port
  }
  const std::vector<NodeIndex> alternatives = m_Tree.TopAlternatives();
  if (!std::all_of(alternatives.begin(), alternatives.end(),
                   [this](NodeIndex alternative) { return CannotMatchTarget(alternative); })) {
    return false;
  }
  const NodeIndex first = First(alternatives.front());
  const bool slash_forgotten = alternatives.size() == 1 && IsLineBegin(first) &&
                               m_Pattern.find("://") == std::string::npos && m_Pattern.find('#') == std::string::npos;
  if (slash_forgotten) {
    Change(At(first).span.end, At(first).span.end, "/");
  }
  Find(LintKinds::FilterTarget,
       "no request has such a target: it begins with \"/\", without scheme and host, and holds no \"#\"",
       slash_forgotten ? "" : "write what follows the host, up to a \"#\"");
  return !slash_forgotten;
}

bool PatternReader::CannotMatchTarget(NodeIndex alternative) const {
  std::string literal; // at the beginning
  bool reading = true;
  const bool anchored = IsLineBegin(First(alternative));
  for (const NodeIndex item :
       At(alternative).kind == Kind::Concatenation ? Children(alternative) : std::vector<NodeIndex>{alternative}) {
    const Node& node = At(item);
    if (node.kind == Kind::Literal && node.byte == '#') {
      return true;
    }
    reading = reading && (node.kind == Kind::Literal || IsLineBegin(item));
    if (reading && node.kind == Kind::Literal) {
      literal += static_cast<char>(node.byte);
    }
  }
  const std::size_t scheme = literal.find("://");
  const bool has_scheme = scheme != std::string::npos && scheme > 0 &&
                          std::all_of(literal.begin(), literal.begin() + static_cast<std::ptrdiff_t>(scheme),
                                      [](unsigned char byte) { return std::isalpha(byte) != 0; });
  const bool all = m_Method == Perenna::METH_OPTIONS && literal == "*"; // a target of its own
  return has_scheme || (anchored && !literal.empty() && literal.front() != '/' && !all);
}

void PatternReader::ReadDots() {
  bool found = false;
  for (NodeIndex index = 0; index < m_Tree.Size(); ++index) {
    if (At(index).kind != Kind::Concatenation) {
      continue;
    }
    const std::vector<NodeIndex> items = Children(index);
    for (std::size_t i = 1; i + 1 < items.size(); ++i) {
      if (IsAlphanumeric(items[i - 1]) && IsText(items[i], ".") && IsAlphanumeric(items[i + 1])) {
        found = true;
        if (m_Allows) {
          Change(At(items[i]).span.begin, At(items[i]).span.end, "\\.");
        }
      }
    }
  }
  if (found) {
    Find(LintKinds::FilterDot, "a \".\" between letters matches any character; \"\\.\" matches the dot",
         m_Allows ? "" : "write \"\\.\", if it need not refuse the others too");
  }
}

bool PatternReader::IsAnchored(NodeIndex index) const {
  const Node& node = At(index);
  switch (node.kind) {
  case Kind::Assertion:
    return IsLineBegin(index) || node.assertion == Perenna::Pattern::Assertion::TextBegin;
  case Kind::Group:
  case Kind::Concatenation:
    return IsAnchored(node.first_child);
  case Kind::Repetition:
    return node.minimum > 0 && IsAnchored(node.first_child);
  case Kind::Alternatives: {
    const std::vector<NodeIndex> children = Children(index);
    return std::all_of(children.begin(), children.end(), [this](NodeIndex child) { return IsAnchored(child); });
  }
  default:
    return false;
  }
}

/// Whether some alternatives say where they match and others do not; a mere "^", as in "(^|/)a", says that on purpose.
bool PatternReader::IsMixed(NodeIndex index) const {
  const Node& node = At(index);
  if (node.kind == Kind::Group || node.kind == Kind::Concatenation) {
    return IsMixed(node.first_child);
  }
  if (node.kind != Kind::Alternatives) {
    return false;
  }
  const std::vector<NodeIndex> children = Children(index);
  const auto anchored = [this](NodeIndex child) { return IsAnchored(child); };
  return !std::all_of(children.begin(), children.end(), anchored) &&
         std::any_of(children.begin(), children.end(), [this, anchored](NodeIndex child) {
           return anchored(child) && At(child).kind != Kind::Assertion;
         });
}

bool PatternReader::BeginsWithSlash(NodeIndex index) const {
  const Node& node = At(index);
  switch (node.kind) {
  case Kind::Literal:
    return node.byte == '/';
  case Kind::Group:
  case Kind::Concatenation:
    return BeginsWithSlash(node.first_child);
  case Kind::Repetition:
    return node.minimum > 0 && BeginsWithSlash(node.first_child);
  case Kind::Alternatives: {
    const std::vector<NodeIndex> children = Children(index);
    return std::all_of(children.begin(), children.end(), [this](NodeIndex child) { return BeginsWithSlash(child); });
  }
  default:
    return false;
  }
}

bool PatternReader::BeginsWithAnything(NodeIndex index) const {
  return IsText(First(index), ".*");
}

void PatternReader::ReadAnchoring() {
  const std::vector<NodeIndex> alternatives = m_Tree.TopAlternatives();
  const auto anchored = std::count_if(alternatives.begin(), alternatives.end(),
                                      [this](NodeIndex alternative) { return IsAnchored(alternative); });
  m_AtStart = static_cast<std::size_t>(anchored) == alternatives.size();
  if (!m_AtStart) {
    AnchorAlternatives(alternatives, static_cast<std::size_t>(anchored));
  }
}

/// A Deny keeps matching what it matches; only an Allow is narrowed, and only where it is plain what was meant.
void PatternReader::AnchorAlternatives(const std::vector<NodeIndex>& alternatives, std::size_t anchored) {
  const bool mixed = IsMixed(m_Tree.Root());
  const LintKind& kind = mixed ? LintKinds::FilterHalfAnchored : LintKinds::FilterUnanchored;
  std::string why = mixed ? "\"^\" binds to one alternative: the others match anywhere in a URL, also further on in a "
                            "longer path or in the query"
                          : "the pattern does not begin with \"^\": it matches anywhere in a URL, also further on in a "
                            "longer path or in the query";
  const std::size_t begins = CountNodes(&PatternReader::IsLineBegin);
  const bool alone = alternatives.size() == 1;
  const bool groupable = CountNodes(&PatternReader::IsReference) == 0 &&      // they are numbered
                         CountNodes(&PatternReader::IsStrayParenthesis) == 0; // would end the group
  bool done = false;
  if (begins == 0 && (alone || groupable)) {
    m_AtStart = m_Allows && BeginsWithSlash(m_Tree.Root());
    const bool anything = alone && BeginsWithAnything(alternatives.front());
    Change(0, 0, std::string(m_AtStart || anything ? "^" : "^.*") + (alone ? "" : "("));
    Change(m_Pattern.size(), m_Pattern.size(), alone ? "" : ")");
    done = true;
  } else if (anchored > 0 && begins == anchored && groupable) {
    done = AnchorMixed(alternatives);
  }
  why += !done       ? "; was that meant?"
         : m_AtStart ? "; the better one matches at the start only"
                     : "; the better one says so";
  Find(kind, why,
       done ? "" : "begin every alternative with \"^\", or with \"^.*\" where it is meant to match anywhere");
}

/// "^/a|/b" becomes "^(/a|/b)", or as a Deny "^(/a|.*/b)".
bool PatternReader::AnchorMixed(const std::vector<NodeIndex>& alternatives) {
  for (const NodeIndex alternative : alternatives) {
    const bool anchored = IsLineBegin(First(alternative));
    const bool plain = anchored ? At(alternative).kind == Kind::Concatenation : !IsAnchored(alternative);
    const NodeIndex begin = anchored && plain ? At(First(alternative)).next_sibling : alternative;
    if (!plain || (m_Allows && !BeginsWithSlash(begin))) {
      return false;
    }
  }
  Change(0, 0, "^(");
  for (const NodeIndex alternative : alternatives) {
    const NodeIndex first = First(alternative);
    if (IsLineBegin(first)) {
      Change(At(first).span.begin, At(first).span.end, "");
    } else if (!m_Allows && !BeginsWithAnything(alternative)) {
      Change(At(first).span.begin, At(first).span.begin, ".*");
    }
  }
  Change(m_Pattern.size(), m_Pattern.size(), ")");
  m_AtStart = m_Allows;
  return true;
}

/// Of some bytes of which names consist, but not of all: more of them may follow.
bool PatternReader::IsOfNameBytes(NodeIndex index) const {
  const Perenna::Pattern::CharacterSet bytes = m_Tree.Characters(At(index));
  bool all_are = At(index).kind == Kind::Set;
  for (std::size_t byte = 0; byte < bytes.size(); ++byte) {
    all_are = all_are && (!bytes[byte] || std::isalnum(static_cast<int>(byte)) != 0 || byte == '_' || byte == '-');
  }
  return all_are;
}

bool PatternReader::EndsInName(NodeIndex index) const {
  const Node& node = At(index);
  switch (node.kind) {
  case Kind::Group:
    return EndsInName(node.first_child);
  case Kind::Concatenation:
    return EndsInName(Last(index));
  case Kind::Alternatives: {
    const std::vector<NodeIndex> children = Children(index);
    return std::all_of(children.begin(), children.end(), [this](NodeIndex child) { return EndsInName(child); });
  }
  case Kind::Repetition:
    return node.minimum > 0 && EndsInName(node.first_child);
  default:
    return IsAlphanumeric(index) || IsOfNameBytes(index);
  }
}

void PatternReader::ReadEnd() {
  std::vector<NodeIndex> open = m_Tree.TopAlternatives();
  const std::size_t all = open.size();
  const auto says_end = [this](NodeIndex alternative) {
    const NodeIndex first = First(alternative);
    const bool anchored = IsLineBegin(first) && first != alternative;
    return !BeginsWithSlash(anchored ? At(first).next_sibling : alternative) || !EndsInName(alternative);
  };
  open.erase(std::remove_if(open.begin(), open.end(), says_end), open.end());
  if (!m_AtStart || open.empty()) {
    return;
  }
  std::vector<Edit> ends;
  ends.reserve(open.size());
  for (const NodeIndex alternative : open) {
    ends.push_back({At(alternative).span.end, At(alternative).span.end, EndOfName});
  }
  const bool can_end = all == 1 || CountNodes(&PatternReader::IsReference) == 0; // their numbers would change
  m_Reading.ended = can_end ? Changed(ends) : "";
  // A guess at what was meant: not together with changes that are none.
  const bool mends = m_Allows && m_Edits.empty() && can_end;
  if (mends) {
    m_Edits = ends;
  }
  Find(LintKinds::FilterEnd, WhyNamesMustEnd("\"^/admin\" matches \"/administrator\" too"),
       mends ? ""
             : std::string("end it with \"") + EndOfName + "\"" +
                   (m_Allows ? "" : ", if it need not refuse longer names too"));
}

} // namespace AccessDirectory
