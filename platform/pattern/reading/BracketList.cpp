#include "BracketList.h"

namespace Perenna::Pattern {

namespace {

constexpr std::size_t MaximumNameBytes = 31;

bool IsBetween(unsigned char byte, char first, char last) {
  return byte >= static_cast<unsigned char>(first) && byte <= static_cast<unsigned char>(last);
}

// Not <cctype>: its answers depend on the process's locale.
bool IsUpper(unsigned char byte) {
  return IsBetween(byte, 'A', 'Z');
}
bool IsLower(unsigned char byte) {
  return IsBetween(byte, 'a', 'z');
}
bool IsAlpha(unsigned char byte) {
  return IsUpper(byte) || IsLower(byte);
}
bool IsDigit(unsigned char byte) {
  return IsBetween(byte, '0', '9');
}
bool IsAlnum(unsigned char byte) {
  return IsAlpha(byte) || IsDigit(byte);
}
bool IsGraph(unsigned char byte) {
  return IsBetween(byte, '!', '~');
}
bool IsPrint(unsigned char byte) {
  return IsBetween(byte, ' ', '~');
}
bool IsPunct(unsigned char byte) {
  return IsGraph(byte) && !IsAlnum(byte);
}
bool IsBlank(unsigned char byte) {
  return byte == ' ' || byte == '\t';
}
bool IsSpace(unsigned char byte) {
  return byte == ' ' || IsBetween(byte, '\t', '\r');
}
bool IsControl(unsigned char byte) {
  return byte < ' ' || byte == 0x7F;
}
bool IsXdigit(unsigned char byte) {
  return IsDigit(byte) || IsBetween(byte, 'a', 'f') || IsBetween(byte, 'A', 'F');
}

struct Class {
  std::string_view name;
  bool (*contains)(unsigned char byte);
};

constexpr Class Classes[] = {{"alnum", IsAlnum}, {"alpha", IsAlpha}, {"blank", IsBlank}, {"cntrl", IsControl},
                             {"digit", IsDigit}, {"graph", IsGraph}, {"lower", IsLower}, {"print", IsPrint},
                             {"punct", IsPunct}, {"space", IsSpace}, {"upper", IsUpper}, {"xdigit", IsXdigit}};

class ListReader {
public:
  ListReader(std::string_view text, std::size_t& position) : m_text(text), m_position(position) {}

  std::optional<CharacterSet> Read() {
    const bool excluding = Peek() == '^';
    m_position += excluding ? 1 : 0;
    // "]" that comes first stands for itself.
    for (bool first = true; first || Peek() != ']'; first = false) {
      if (!ReadItem(first)) {
        return std::nullopt;
      }
    }
    ++m_position;
    if (excluding) {
      m_set.set('\n').flip(); // REG_NEWLINE
    }
    return m_set.reset(0); // a text has no NUL
  }

private:
  /// A byte, which a range may begin or end with, or what has been added to the set already.
  struct Element {
    bool is_byte;
    unsigned char byte;
  };

  bool AtEnd() const { return m_position >= m_text.size(); }
  char Peek(std::size_t ahead = 0) const {
    return m_position + ahead < m_text.size() ? m_text[m_position + ahead] : '\0';
  }

  /// A single byte, class or range.
  bool ReadItem(bool first) {
    // "-" that is neither first nor last nor the end of a range is an error.
    if (Peek() == '-' && !first && Peek(1) != ']') {
      return false;
    }
    const std::optional<Element> low = ReadElement();
    if (!low || !low->is_byte) {
      return low.has_value();
    }
    if (Peek() != '-' || Peek(1) == ']') {
      m_set.set(low->byte);
      return true;
    }
    ++m_position;
    const std::optional<Element> high = ReadElement();
    if (!high || !high->is_byte || low->byte > high->byte) {
      return false;
    }
    for (std::size_t byte = low->byte; byte <= high->byte; ++byte) {
      m_set.set(byte);
    }
    return true;
  }

  std::optional<Element> ReadElement() {
    if (AtEnd()) {
      return std::nullopt;
    }
    const char kind = Peek() == '[' ? Peek(1) : '\0';
    if (kind == '.' || kind == '=' || kind == ':') {
      return ReadNamed(kind);
    }
    return Element{true, static_cast<unsigned char>(m_text[m_position++])};
  }

  /// "[:name:]", "[.byte.]" or "[=byte=]".
  std::optional<Element> ReadNamed(char kind) {
    const std::size_t begin = m_position + 2;
    const std::string_view closing = kind == ':' ? ":]" : kind == '.' ? ".]" : "=]";
    const std::size_t end = m_text.find(closing, begin);
    if (end == std::string_view::npos || end - begin > MaximumNameBytes) {
      return std::nullopt;
    }
    const std::string_view name = m_text.substr(begin, end - begin);
    m_position = end + 2;
    if (kind == ':') {
      const auto characters = CharacterClass(name);
      m_set |= characters.value_or(CharacterSet());
      return characters ? std::optional(Element{false, 0}) : std::nullopt;
    }
    if (name.size() != 1) {
      return std::nullopt;
    }
    const auto byte = static_cast<unsigned char>(name.front());
    if (kind == '=') {
      m_set.set(byte);
    }
    return Element{kind == '.', byte};
  }

  std::string_view m_text;
  std::size_t& m_position;
  CharacterSet m_set;
};

} // namespace

std::optional<CharacterSet> CharacterClass(std::string_view name) {
  for (const Class& known : Classes) {
    if (known.name == name) {
      CharacterSet set;
      for (std::size_t byte = 0; byte < set.size(); ++byte) {
        set.set(byte, known.contains(static_cast<unsigned char>(byte)));
      }
      return set;
    }
  }
  return std::nullopt;
}

std::optional<CharacterSet> ReadBracketList(std::string_view text, std::size_t& position) {
  return ListReader(text, position).Read();
}

} // namespace Perenna::Pattern
