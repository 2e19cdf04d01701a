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
  enum class Item { Byte, Class };

  bool AtEnd(std::size_t ahead = 0) const { return m_position + ahead >= m_text.size(); }
  char Peek(std::size_t ahead = 0) const { return AtEnd(ahead) ? '\0' : m_text[m_position + ahead]; }

  /// A single byte, class or range.
  bool ReadItem(bool first) {
    unsigned char low = 0;
    Item item = Item::Byte;
    // "-" that is neither first nor last nor the end of a range is an error.
    if (Peek() == '-' && !first && Peek(1) != ']') {
      return false;
    }
    if (!ReadElement(item, low)) {
      return false;
    }
    if (item == Item::Class) {
      return !AtEnd();
    }
    if (Peek() != '-' || Peek(1) == ']') {
      m_set.set(low);
      return !AtEnd();
    }
    ++m_position;
    unsigned char high = 0;
    if (AtEnd() || !ReadElement(item, high) || item == Item::Class || low > high) {
      return false;
    }
    for (std::size_t byte = low; byte <= high; ++byte) {
      m_set.set(byte);
    }
    return !AtEnd();
  }

  bool ReadElement(Item& item, unsigned char& byte) {
    if (AtEnd()) {
      return false;
    }
    item = Item::Byte;
    const char kind = Peek() == '[' ? Peek(1) : '\0';
    if (kind == '.' || kind == '=' || kind == ':') {
      return ReadNamed(kind, item, byte);
    }
    byte = static_cast<unsigned char>(Peek());
    ++m_position;
    return true;
  }

  /// "[:name:]", "[.byte.]" or "[=byte=]".
  bool ReadNamed(char kind, Item& item, unsigned char& byte) {
    const std::size_t begin = m_position + 2;
    const std::string_view closing = kind == ':' ? ":]" : kind == '.' ? ".]" : "=]";
    const std::size_t end = m_text.find(closing, begin);
    if (end == std::string_view::npos || end - begin > MaximumNameBytes) {
      return false;
    }
    const std::string_view name = m_text.substr(begin, end - begin);
    m_position = end + 2;
    if (kind == ':') {
      item = Item::Class;
      const auto characters = CharacterClass(name);
      m_set |= characters.value_or(CharacterSet());
      return characters.has_value();
    }
    if (name.size() != 1) {
      return false;
    }
    byte = static_cast<unsigned char>(name.front());
    if (kind == '=') {
      item = Item::Class; // cannot begin or end a range
      m_set.set(byte);
    }
    return true;
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
