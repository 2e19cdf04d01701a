#include "directory/pattern/Patterns.h"

#include <algorithm>
#include <new>

#include "directory/text/Vocabulary.h"
#include "platform/pattern/Cost.h"
#include "platform/pattern/Tree.h"

namespace AccessDirectory {

namespace {

using Outcome = Perenna::RegularExpression::Outcome;

} // namespace

PatternNumber Patterns::Add(const std::string& text) {
  const std::string effective = text.substr(0, text.find('\0'));
  const auto [entry, is_new] = m_Numbers.emplace(effective, static_cast<PatternNumber>(m_Patterns.size()));
  if (is_new) {
    std::string beginning = Perenna::Pattern::Tree::Read(effective).LiteralBeginning();
    const bool is_beginning = effective == '^' + beginning || effective == '^' + Literally(beginning);
    m_Patterns.push_back({effective, std::move(beginning), is_beginning});
    m_Compiled.emplace_back();
  }
  return entry->second;
}

const Perenna::RegularExpression& Patterns::Compiled(PatternNumber number) const {
  if (m_Compiled[number] == nullptr) {
    std::string fault;
    m_Compiled[number] = CompilePattern(m_Patterns[number].text, fault);
  }
  return *m_Compiled[number];
}

bool Patterns::IsCostly(PatternNumber number) const {
  const Perenna::Pattern::Judgement judgement = Perenna::Pattern::Judge(m_Patterns[number].text);
  return (judgement.refusal != nullptr || judgement.malformed) && Compiled(number).Test("") == Outcome::Undecided;
}

bool Patterns::Matches(PatternNumber number, const std::string& text) const {
  const std::string& beginning = m_Patterns[number].beginning;
  if (text.compare(0, beginning.size(), beginning) != 0) { // a target has one line
    return false;
  }
  const Outcome outcome = Compiled(number).Test(text.c_str());
  if (outcome == Outcome::Undecided) {
    throw std::bad_alloc();
  }
  return outcome == Outcome::Match;
}

bool Patterns::AreApart(PatternNumber left, PatternNumber right) const {
  const std::string& first = m_Patterns[left].beginning;
  const std::string& second = m_Patterns[right].beginning;
  const std::size_t shared = std::min(first.size(), second.size());
  return first.compare(0, shared, second, 0, shared) != 0;
}

bool Patterns::IsPlainlyWithin(PatternNumber inner, PatternNumber outer) const {
  const Pattern& wide = m_Patterns[outer];
  return wide.is_beginning && m_Patterns[inner].beginning.compare(0, wide.beginning.size(), wide.beginning) == 0;
}

std::string Literally(std::string_view text) {
  std::string pattern;
  for (const char byte : text) {
    pattern += std::string_view(".[]*+?{}()|^$\\").find(byte) == std::string_view::npos ? "" : "\\";
    pattern += byte;
  }
  return pattern;
}

} // namespace AccessDirectory
