#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "platform/pattern/Tree.h"

struct fa;

namespace AccessDirectory {

/// The bytes of which targets consist: visible ASCII. Languages are over these alone.
constexpr unsigned char FirstTargetByte = 0x21;
constexpr unsigned char LastTargetByte = 0x7E;

/// A regular language, as a finite automaton of libfa. A value that is never changed once it is made: copies share it.
/// Every operation throws std::bad_alloc when memory runs out, which with libfa may come early: two small automata can
/// have a huge product. One thread uses automata that share anything.
class Automaton {
public:
  static Automaton Nothing();
  static Automaton EmptyText();
  /// One byte of the set, as far as targets consist of it.
  static Automaton OneOf(const Perenna::Pattern::CharacterSet& set);
  /// One byte of any.
  static Automaton AnyByte();
  /// Just this text.
  static Automaton Text(std::string_view text);

  Automaton operator+(const Automaton& next) const; ///< one after the other
  Automaton operator|(const Automaton& other) const;
  Automaton operator&(const Automaton& other) const;
  Automaton operator-(const Automaton& other) const;
  /// `minimum` to `maximum` times; `Perenna::Pattern::Unbounded` for no end.
  Automaton Repeated(std::uint32_t minimum, std::uint32_t maximum) const;
  /// The same language with as few states as possible.
  Automaton Minimal() const;

  bool IsNothing() const;
  bool Accepts(std::string_view text) const;
  /// A text of the language, as short as any, of letters rather than of other bytes; false when there is none.
  bool Example(std::string& text) const;
  std::size_t States() const;

private:
  explicit Automaton(fa* made); // takes ownership; null: memory ran out

  static Automaton Compiled(const std::string& expression);

  std::shared_ptr<fa> m_Automaton;
};

} // namespace AccessDirectory
