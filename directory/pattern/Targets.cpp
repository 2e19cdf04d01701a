#include "directory/pattern/Targets.h"

#include <algorithm>

#include "TN_util.h"

namespace AccessDirectory {

namespace {

using Perenna::Pattern::CharacterSet;
using Perenna::Pattern::Unbounded;

constexpr std::string_view Digits = "0123456789ABCDEF";

CharacterSet SetOf(std::string_view bytes) {
  CharacterSet set;
  for (const char byte : bytes) {
    set.set(static_cast<unsigned char>(byte));
  }
  return set;
}

/// RFC 3986: unreserved / sub-delims / ":" / "@", without ";".
CharacterSet SegmentCharacters() {
  return SetOf("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-._~!$&'()*+,=:@");
}

/// What may not be percent-encoded: it stands raw in a path, or would split or end it once decoded.
CharacterSet NeverEncoded() {
  CharacterSet set = SegmentCharacters() | SetOf(";/\\%?#\x7F");
  for (std::size_t control = 0; control < ' '; ++control) {
    set.set(control);
  }
  return set;
}

class Builder {
public:
  explicit Builder(const TargetRules& rules) {
    for (const std::string& spelling : rules.allows) {
      Tarn::byte_t byte = 0;
      unsigned count = 0;
      if (spelling == ";") {
        m_Semicolon = true;
      } else if (spelling.size() == 3 && Tarn::hex2bin(spelling.substr(1).c_str(), &byte, 1, &count) == 0) {
        m_Encodable.set(byte);
        m_Allowed.set(byte);
      }
    }
  }

  Automaton Paths() const {
    const Automaton slash = Automaton::Text("/");
    const Automaton last = slash.Repeated(0, 1);
    const Automaton paths = slash | ((slash + Segment()).Repeated(1, Unbounded) + last);
    return (m_Allowed.any() ? paths - Climbing() : paths).Minimal();
  }

private:
  static Automaton Texts(std::initializer_list<const char*> texts) {
    Automaton all = Automaton::Nothing();
    for (const char* const text : texts) {
      all = all | Automaton::Text(text);
    }
    return all;
  }

  Automaton Encoded() const {
    Automaton all = Automaton::Nothing();
    for (std::size_t high = 0; high < Digits.size(); ++high) {
      CharacterSet low;
      for (std::size_t digit = 0; digit < Digits.size(); ++digit) {
        low.set(static_cast<unsigned char>(Digits[digit]), m_Encodable[high * Digits.size() + digit]);
      }
      all = all | (Automaton::Text({Digits.data() + high, 1}) + Automaton::OneOf(low));
    }
    return Automaton::Text("%") + all;
  }

  /// A name that is neither empty nor dots, and what follows a ";".
  Automaton Segment() const {
    const Automaton character = (Automaton::OneOf(SegmentCharacters()) | Encoded()).Minimal();
    const Automaton name = character.Repeated(1, Unbounded) - Texts({".", ".."});
    if (!m_Semicolon) {
      return name.Minimal();
    }
    const Automaton parameters = Automaton::Text(";") + (character | Automaton::Text(";")).Repeated(0, Unbounded);
    return (name + parameters.Repeated(0, 1)).Minimal();
  }

  /// What is a "." or ".." segment for an application that decodes what is allowed.
  Automaton Climbing() const {
    const auto escape = [this](char byte, const char* spelling) {
      return m_Allowed[static_cast<unsigned char>(byte)] ? Automaton::Text(spelling) : Automaton::Nothing();
    };
    const Automaton any = Automaton::AnyByte().Repeated(0, Unbounded);
    const Automaton separator = Automaton::Text("/") | escape('/', "%2F") | escape('\\', "%5C");
    const Automaton end = separator | Automaton::Text(";") | escape(';', "%3B");
    return any + separator + Texts({".", ".."}) + (end + any).Repeated(0, 1);
  }

  bool m_Semicolon = false;
  CharacterSet m_Allowed;
  CharacterSet m_Encodable = ~NeverEncoded();
};

} // namespace

Automaton WithAnyQuery(const Automaton& paths) {
  const Automaton byte = Automaton::OneOf(~SetOf("#"));
  return paths + (Automaton::Text("?") + byte.Repeated(0, Unbounded)).Repeated(0, 1);
}

Automaton TargetLanguage(const TargetRules& rules) {
  const Automaton paths = Builder(rules).Paths();
  return rules.with_query ? WithAnyQuery(paths).Minimal() : paths;
}

std::string TargetsText(const TargetRules& rules) {
  std::string text = rules.with_query ? "all paths with their queries in normal form" : "all paths in normal form";
  for (std::size_t i = 0; i < rules.allows.size(); ++i) {
    text += (i == 0 ? ", with \"" : ", \"") + rules.allows[i] + '"';
  }
  return text + (rules.allows.empty() ? "" : " allowed");
}

Json TargetsJson(const TargetRules& rules) {
  return {{"part", rules.with_query ? "path-and-query" : "path"}, {"allows", rules.allows}};
}

} // namespace AccessDirectory
