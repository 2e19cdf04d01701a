#include "directory/pattern/Solver.h"

#include <algorithm>
#include <cstring>

namespace AccessDirectory {

namespace {

// Each failure costs up to the limits of one answer; a directory of such patterns is given up as a whole.
constexpr int MaximumFailures = 30;

// What the process sends begins with the kind of an answer, or with one of these: a pattern's number follows the first.
constexpr char Translates = 't';
constexpr char Translated = 'd';
constexpr char FirstKind = '0';

void AppendNumber(std::string& message, std::uint32_t number) {
  message.append(reinterpret_cast<const char*>(&number), sizeof number);
}

std::uint32_t NumberAt(const std::string& message, std::size_t position) {
  std::uint32_t number = 0;
  std::memcpy(&number, message.data() + position, sizeof number);
  return number;
}

constexpr std::uint32_t OnPath = 1U << 31U;

std::string Encoded(const Question& question) {
  std::string message;
  AppendNumber(message, static_cast<std::uint32_t>(question.within.size()));
  for (const auto* const terms : {&question.within, &question.without}) {
    for (const Question::Term term : *terms) {
      AppendNumber(message, term.pattern | (term.on_path ? OnPath : 0U));
    }
  }
  return message;
}

Question Decoded(const std::string& message) {
  Question question;
  const std::uint32_t within = NumberAt(message, 0);
  for (std::size_t at = sizeof within; at < message.size(); at += sizeof within) {
    const std::uint32_t number = NumberAt(message, at);
    auto& terms = question.within.size() < within ? question.within : question.without;
    terms.push_back({number & ~OnPath, (number & OnPath) != 0});
  }
  return question;
}

/// Tells which pattern it is about to translate: should that be its end, the pattern is to blame.
class ReportingSearch : public Search {
public:
  using Search::Search;
  void Answer(const std::string& message, const ChildProcess::Send& send) {
    m_Send = &send;
    const AccessDirectory::Answer answer = Find(Decoded(message));
    send(static_cast<char>(FirstKind + static_cast<char>(answer.kind)) + answer.text);
  }

protected:
  void BeginTranslation(PatternNumber pattern) override {
    std::string message(1, Translates);
    AppendNumber(message, pattern);
    (*m_Send)(message);
  }
  void EndTranslation() override { (*m_Send)({Translated}); }

private:
  const ChildProcess::Send* m_Send = nullptr;
};

} // namespace

void Solver::Start() {
  m_Process = nullptr;
  m_Known = m_Patterns.Count();
  m_Skips.resize(m_Known);
  m_Process = std::make_unique<ChildProcess>(m_Limits, [this]() -> ChildProcess::Work {
    auto search = std::make_shared<ReportingSearch>(m_Patterns, m_Rules, m_Skips);
    return [search](const std::string& message, const ChildProcess::Send& send) { search->Answer(message, send); };
  });
}

/// Whether two of the patterns begin so differently that no target matches both.
bool Solver::IsTrivial(const Question& question) const {
  const auto& terms = question.within;
  for (auto left = terms.begin(); left != terms.end(); ++left) {
    if (std::any_of(terms.begin(), left,
                    [&](Question::Term right) { return m_Patterns.AreApart(left->pattern, right.pattern); })) {
      return true;
    }
  }
  return false;
}

bool Solver::Ask(const Question& question, Answer& answer) {
  m_Translates = false;
  std::string message;
  bool sent = m_Process->Put(Encoded(question));
  while (sent && m_Process->Get(message)) {
    m_Translates = message.front() == Translates;
    if (m_Translates) {
      m_Translated = NumberAt(message, 1);
    } else if (message.front() != Translated) {
      answer = {static_cast<Answer::Kind>(message.front() - FirstKind), message.substr(1)};
      return true;
    }
  }
  return false;
}

Answer Solver::Find(const Question& question) {
  if (IsTrivial(question)) {
    return {Answer::Kind::None, {}};
  }
  Answer answer;
  for (;;) {
    if (m_Failures >= MaximumFailures) {
      return {Answer::Kind::Unknown, "too many questions came to no answer"};
    }
    if (m_Process == nullptr || m_Known < m_Patterns.Count()) {
      Start();
    }
    if (Ask(question, answer)) {
      return answer;
    }
    ++m_Failures;
    const std::string reason = m_Process->End();
    m_Process = nullptr;
    if (!m_Translates) {
      return {Answer::Kind::Unknown, "to find out takes " + reason};
    }
    m_Skips[m_Translated] = true;
  }
}

} // namespace AccessDirectory
