#include "directory/pattern/Automaton.h"

#include <algorithm>
#include <deque>
#include <new>
#include <unordered_map>
#include <unordered_set>

// A header of C that does not say so.
extern "C" {
#include <fa.h>
}

namespace AccessDirectory {

namespace {

constexpr int NoEnd = -1; // of a repetition

/// What libfa takes for something else at the ends of a range.
bool IsSpecial(unsigned char byte) {
  return std::string_view("^]-[\\").find(static_cast<char>(byte)) != std::string_view::npos;
}

std::string Escaped(unsigned char byte) {
  return {'\\', static_cast<char>(byte)};
}

void AddAlternative(std::string& expression, const std::string& alternative) {
  expression += (expression.empty() ? "" : "|") + alternative;
}

/// Adds the bytes [first, last] in libfa's own notation, in which nothing but single bytes and plain ranges occurs.
void AddRange(std::string& expression, unsigned char first, unsigned char last) {
  while (first <= last && IsSpecial(first)) {
    AddAlternative(expression, Escaped(first++));
  }
  std::string end;
  while (first <= last && IsSpecial(last)) {
    AddAlternative(end, Escaped(last--));
  }
  if (first == last) {
    AddAlternative(expression, Escaped(first));
  } else if (first < last) {
    AddAlternative(expression, {'[', static_cast<char>(first), '-', static_cast<char>(last), ']'});
  }
  if (!end.empty()) {
    AddAlternative(expression, end);
  }
}

/// What a reader likes to see of the bytes [first, last]: a letter, then a digit, then whatever comes first.
unsigned char Liked(unsigned char first, unsigned char last) {
  for (const auto& [low, high] : {std::pair('a', 'z'), std::pair('A', 'Z'), std::pair('0', '9')}) {
    const auto byte = std::max(first, static_cast<unsigned char>(low));
    if (byte <= std::min(last, static_cast<unsigned char>(high))) {
      return byte;
    }
  }
  return first;
}

int Rank(unsigned char byte) {
  return byte >= 'a' && byte <= 'z' ? 0 : byte >= 'A' && byte <= 'Z' ? 1 : byte >= '0' && byte <= '9' ? 2 : 3;
}

struct Step {
  state* to;
  unsigned char first;
  unsigned char last;
};

std::vector<Step> StepsOf(state* from) {
  std::vector<Step> steps(fa_state_num_trans(from));
  for (std::size_t i = 0; i < steps.size(); ++i) {
    fa_state_trans(from, i, &steps[i].to, &steps[i].first, &steps[i].last);
  }
  return steps;
}

} // namespace

Automaton::Automaton(fa* made) {
  if (made == nullptr) {
    throw std::bad_alloc();
  }
  m_Automaton.reset(made, fa_free);
}

Automaton Automaton::Compiled(const std::string& expression) {
  fa* made = nullptr;
  if (fa_compile(expression.c_str(), expression.size(), &made) != REG_NOERROR) {
    throw std::bad_alloc(); // the expressions of this file are well-formed
  }
  return Automaton(made);
}

Automaton Automaton::Nothing() {
  return Automaton(fa_make_basic(FA_EMPTY));
}

Automaton Automaton::EmptyText() {
  return Automaton(fa_make_basic(FA_EPSILON));
}

Automaton Automaton::OneOf(const Perenna::Pattern::CharacterSet& set) {
  std::string expression;
  for (unsigned first = FirstTargetByte; first <= LastTargetByte; ++first) {
    unsigned end = first;
    while (end <= LastTargetByte && set[end]) {
      ++end;
    }
    if (end > first) {
      AddRange(expression, static_cast<unsigned char>(first), static_cast<unsigned char>(end - 1));
      first = end;
    }
  }
  return expression.empty() ? Nothing() : Compiled(expression);
}

Automaton Automaton::AnyByte() {
  return OneOf(Perenna::Pattern::CharacterSet().set());
}

Automaton Automaton::Text(std::string_view text) {
  std::string expression;
  for (const char byte : text) {
    const auto value = static_cast<unsigned char>(byte);
    if (value < FirstTargetByte || value > LastTargetByte) {
      return Nothing();
    }
    expression += Escaped(value);
  }
  return text.empty() ? EmptyText() : Compiled(expression);
}

Automaton Automaton::operator+(const Automaton& next) const {
  return Automaton(fa_concat(m_Automaton.get(), next.m_Automaton.get()));
}

Automaton Automaton::operator|(const Automaton& other) const {
  return Automaton(fa_union(m_Automaton.get(), other.m_Automaton.get()));
}

Automaton Automaton::operator&(const Automaton& other) const {
  return Automaton(fa_intersect(m_Automaton.get(), other.m_Automaton.get()));
}

Automaton Automaton::operator-(const Automaton& other) const {
  return Automaton(fa_minus(m_Automaton.get(), other.m_Automaton.get()));
}

Automaton Automaton::Repeated(std::uint32_t minimum, std::uint32_t maximum) const {
  const int most = maximum == Perenna::Pattern::Unbounded ? NoEnd : static_cast<int>(maximum);
  return Automaton(fa_iter(m_Automaton.get(), static_cast<int>(minimum), most));
}

Automaton Automaton::Minimal() const {
  Automaton copy(fa_union(m_Automaton.get(), Nothing().m_Automaton.get()));
  if (fa_minimize(copy.m_Automaton.get()) < 0) {
    throw std::bad_alloc();
  }
  return copy;
}

bool Automaton::IsNothing() const {
  std::string text;
  return !Example(text);
}

bool Automaton::Accepts(std::string_view text) const {
  std::unordered_set<state*> here = {fa_state_initial(m_Automaton.get())};
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    std::unordered_set<state*> next;
    for (state* const from : here) {
      for (const Step& step : StepsOf(from)) {
        if (step.first <= byte && byte <= step.last) {
          next.insert(step.to);
        }
      }
    }
    here.swap(next);
  }
  return std::any_of(here.begin(), here.end(), fa_state_is_accepting);
}

bool Automaton::Example(std::string& text) const {
  struct Reached {
    state* from;
    unsigned char byte;
  };
  state* const initial = fa_state_initial(m_Automaton.get());
  std::unordered_map<state*, Reached> reached = {{initial, {nullptr, 0}}};
  std::deque<state*> open = {initial};
  for (; !open.empty(); open.pop_front()) {
    state* at = open.front();
    if (fa_state_is_accepting(at)) {
      text.clear();
      for (; at != initial; at = reached[at].from) {
        text += static_cast<char>(reached[at].byte);
      }
      std::reverse(text.begin(), text.end());
      return true;
    }
    std::vector<Step> steps = StepsOf(at);
    for (Step& step : steps) {
      step.first = Liked(step.first, step.last);
    }
    std::sort(steps.begin(), steps.end(), [](const Step& left, const Step& right) {
      return std::pair(Rank(left.first), left.first) < std::pair(Rank(right.first), right.first);
    });
    for (const Step& step : steps) {
      if (reached.try_emplace(step.to, Reached{at, step.first}).second) {
        open.push_back(step.to);
      }
    }
  }
  return false;
}

std::size_t Automaton::States() const {
  std::size_t count = 0;
  for (state* at = fa_state_initial(m_Automaton.get()); at != nullptr; at = fa_state_next(at)) {
    ++count;
  }
  return count;
}

} // namespace AccessDirectory
