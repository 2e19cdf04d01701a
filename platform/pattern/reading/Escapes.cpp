#include "Escapes.h"

#include "BracketList.h"

namespace Perenna::Pattern {

std::optional<Assertion> EscapedAssertion(char byte) {
  switch (byte) {
  case 'b':
    return Assertion::WordBoundary;
  case 'B':
    return Assertion::NotWordBoundary;
  case '<':
    return Assertion::WordBegin;
  case '>':
    return Assertion::WordEnd;
  case '`':
    return Assertion::TextBegin;
  case '\'':
    return Assertion::TextEnd;
  default:
    return std::nullopt;
  }
}

std::optional<CharacterSet> EscapedSet(char byte) {
  std::optional<CharacterSet> set;
  if (byte == 'w' || byte == 'W') {
    set = CharacterClass("alnum").value_or(CharacterSet()).set('_');
  } else if (byte == 's' || byte == 'S') {
    set = CharacterClass("space");
  }
  if (byte == 'W' || byte == 'S') {
    set->flip().reset(0);
  }
  return set;
}

} // namespace Perenna::Pattern
