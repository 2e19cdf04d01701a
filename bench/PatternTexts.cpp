#include "PatternTexts.h"

#include "platform/pattern/Tree.h"

using namespace Perenna::Pattern;

namespace {

using Random = std::mt19937;

std::size_t Below(Random& random, std::size_t limit) {
  return random() % limit;
}

template <std::size_t Size> std::string OneOf(Random& random, const char* const (&texts)[Size]) {
  return texts[Below(random, Size)];
}

std::string Number(Random& random, std::size_t limit) {
  return std::to_string(Below(random, limit) + 1);
}

/// A path as administrators write filters for it.
std::string PathPattern(Random& random) {
  static const char* const segments[] = {"articles",
                                         "users",
                                         "[^/]+",
                                         "[0-9]+",
                                         ".*",
                                         "[a-z]{1,16}",
                                         "v[0-9]",
                                         "api",
                                         "[0-9a-f]{8}",
                                         "(a|b|c)",
                                         "(drafts|new)",
                                         "[A-Za-z]*",
                                         "[^/]{1,255}",
                                         "[[:alnum:]_-]+",
                                         "(x(/y)?)",
                                         "\\.well-known",
                                         "[0-9]{4}-[0-9]{2}",
                                         "(en|de|fr)(-[A-Z]{2})?",
                                         "\\w+",
                                         "d?"};
  static const char* const ends[] = {"", "$", "(/|$)", "/?$", "(/.*)?$", "\\.(png|jpg|gif)$", "\\.conf$", ".*"};
  std::string pattern = Below(random, 5) == 0 ? "" : "^";
  for (std::size_t count = Below(random, 6) + 1; count > 0; --count) {
    pattern += "/" + OneOf(random, segments);
  }
  return pattern + OneOf(random, ends);
}

std::string Repetition(Random& random) {
  static const char* const plain[] = {"*", "+", "?"};
  const std::size_t limits[] = {3, 10, 100, 1000, 5000};
  switch (Below(random, 8)) {
  case 0:
    return "{" + Number(random, limits[Below(random, 5)]) + "}";
  case 1:
    return "{0," + Number(random, limits[Below(random, 4)]) + "}";
  case 2: {
    const std::string minimum = Number(random, 9);
    return "{" + minimum + "," + minimum + Number(random, 99) + "}";
  }
  case 3:
    return "{" + Number(random, 20) + ",}";
  default:
    return OneOf(random, plain);
  }
}

/// Any of the grammar's forms inside each other.
std::string NestedPattern(Random& random, std::size_t depth) {
  static const char* const atoms[] = {"a", "b", "c", "/", ".", "[ab]", "[^a]", "[^/]", "x", "\\w"};
  static const char* const assertions[] = {"^", "$", "\\b", "\\B", "\\<", "\\>"};
  std::string pattern;
  for (std::size_t count = Below(random, 4) + 1; count > 0; --count) {
    const std::size_t kind = Below(random, 20);
    if (kind == 0) {
      pattern += OneOf(random, assertions);
      continue;
    }
    if (kind == 1) {
      pattern += "|";
      continue;
    }
    pattern += kind < 8 && depth > 0 ? "(" + NestedPattern(random, depth - 1) + ")" : OneOf(random, atoms);
    if (Below(random, 3) == 0) {
      pattern += Repetition(random);
    }
  }
  return pattern;
}

/// Few parts, repeated often: what grows quadratically or worse.
std::string HostilePattern(Random& random) {
  static const char* const parts[] = {"(a?)", "(^|$)", "\\b", "(a|b)*", "(a*|b)", ".{1,9}", "()",    "(\\b|\\B)",
                                      "a?",   "[ab]",  ".",   "(a|aa)", ".*a",    "(^a|b)", "(a*)*", "(.a?)"};
  std::string pattern = Below(random, 2) == 0 ? "^" : "";
  pattern += Below(random, 3) == 0 ? "(a|c)*a" : "";
  for (std::size_t kinds = Below(random, 3) + 1; kinds > 0; --kinds) {
    const std::string part = OneOf(random, parts);
    const std::size_t sizes[] = {3, 10, 40, 400, 3000};
    std::size_t count = Below(random, sizes[Below(random, 5)]) + 1;
    if (part.back() != 'b' && Below(random, 2) == 0) {
      pattern += "(" + part + "){" + std::to_string(count) + "}";
      continue;
    }
    for (; count > 0; --count) {
      pattern += part;
    }
  }
  return Below(random, 3) == 0 ? "(" + pattern + ")*z" : pattern + "z";
}

std::string ReferencePattern(Random& random) {
  static const char* const groups[] = {"([a-z]+)", "(a*)", "(.)", "([^/]+)", "(a|b)", "(ab?)", "([ab]{1,8})", "(|a)"};
  static const char* const between[] = {"", "/", "-", ".*", "(b*)", "x?", "(/|$)", "/([0-9]+)/"};
  static const char* const references[] = {"\\1", "\\1*", "\\1$", "(\\1)", "(\\1|a)", "\\1\\1"};
  std::string pattern = Below(random, 2) == 0 ? "^/" : "";
  pattern += OneOf(random, groups) + OneOf(random, between) + OneOf(random, references) + OneOf(random, between);
  return Below(random, 4) == 0 ? pattern + OneOf(random, references) : pattern;
}

/// Visits of nodes to make a text: parts that match nothing could be repeated without an end.
constexpr std::size_t MaximumVisits = 2000000;

/// A text that the part matches, with repetitions up to `most` times, in as many visits as are `left`.
void Walk(const Tree& tree, NodeIndex index, std::size_t most, std::size_t limit, Random& random, std::size_t& left,
          std::string& text) {
  const Node& node = tree[index];
  if (text.size() >= limit || left == 0) {
    return;
  }
  --left;
  if (node.kind == Kind::Literal || node.kind == Kind::Set) {
    const CharacterSet set = tree.Characters(node);
    for (std::size_t tries = 0; tries < 1000; ++tries) {
      const std::size_t byte = tries < 100 ? 'a' + Below(random, 4) : Below(random, 256);
      if (set.test(byte)) {
        text += static_cast<char>(byte);
        return;
      }
    }
    return;
  }
  if (node.kind == Kind::Repetition) {
    const std::size_t maximum = std::min<std::size_t>(node.maximum, node.minimum + most);
    for (std::size_t count = node.minimum + Below(random, maximum - node.minimum + 1); count > 0; --count) {
      Walk(tree, node.first_child, most, limit, random, left, text);
    }
    return;
  }
  std::vector<NodeIndex> children;
  for (NodeIndex child = node.first_child; child != NoNode; child = tree[child].next_sibling) {
    children.push_back(child);
  }
  if (node.kind == Kind::Alternatives) {
    children = {children[Below(random, children.size())]};
  }
  for (const NodeIndex child : children) {
    Walk(tree, child, most, limit, random, left, text);
  }
}

} // namespace

std::string RandomPattern(Random& random) {
  switch (Below(random, 8)) {
  case 0:
  case 1:
  case 2:
    return PathPattern(random);
  case 3:
  case 4:
    return NestedPattern(random, 4);
  case 5:
    return "^" + NestedPattern(random, 3) + "$";
  case 6:
    return HostilePattern(random);
  default:
    return ReferencePattern(random);
  }
}

std::vector<std::string> AdverseTexts(const std::string& pattern, std::size_t bytes, Random& random) {
  const Tree tree = Tree::Read(pattern);
  std::string some;
  std::size_t left = MaximumVisits;
  for (std::size_t round = 0; round < 20; ++round) {
    Walk(tree, tree.Root(), 2, 200, random, left, some);
  }
  some += "a/";
  std::vector<std::string> texts;
  const auto add = [&](std::string text) {
    while (text.size() + 1 < bytes) {
      text += text.empty() ? "a" : text;
    }
    texts.push_back(text.substr(0, bytes - 1) + '\x01');
  };
  add(std::string(1, some[Below(random, some.size())]));
  add("/" + std::string(bytes, some[Below(random, some.size())]));
  for (const std::size_t kinds : {2U, 2U, 3U, 26U}) {
    std::string letters;
    for (std::size_t count = 0; count < kinds; ++count) {
      letters += some[Below(random, some.size())];
    }
    std::string text = tree.LiteralBeginning();
    while (text.size() < bytes) {
      text += letters[Below(random, letters.size())];
    }
    add(text);
  }
  for (const std::size_t most : {1U, 3U, 300U, 9000U}) {
    std::string text;
    left = MaximumVisits;
    for (std::size_t rounds = 0; text.size() < bytes && rounds < bytes; ++rounds) {
      Walk(tree, tree.Root(), most, bytes, random, left, text);
    }
    add(text);
  }
  return texts;
}
