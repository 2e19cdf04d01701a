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

// What it is sent begins with one of these.
constexpr char NewPattern = 'n';
constexpr char Asks = 'a';

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
  std::string message(1, Asks);
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
  const std::uint32_t within = NumberAt(message, 1);
  for (std::size_t at = 1 + sizeof within; at < message.size(); at += sizeof within) {
    const std::uint32_t number = NumberAt(message, at);
    auto& terms = question.within.size() < within ? question.within : question.without;
    terms.push_back({number & ~OnPath, (number & OnPath) != 0});
  }
  return question;
}

/// Tells which pattern it is about to translate: should that be its end, the pattern is to blame.
class ReportingSearch : public Search {
public:
  ReportingSearch(Patterns& patterns, const TargetRules& rules, std::vector<bool> skips)
      : Search(patterns, rules, std::move(skips)), m_Patterns(patterns) {}
  void Answer(const std::string& message, const ChildProcess::Send& send) {
    if (message.front() == NewPattern) {
      m_Patterns.Add(message.substr(1));
      return;
    }
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
  Patterns& m_Patterns;
  const ChildProcess::Send* m_Send = nullptr;
};

} // namespace

void Solver::Start() {
  m_Known = m_Patterns.Count();
  m_Skips.resize(m_Known);
  m_IsFresh = true;
  m_Process = std::make_unique<ChildProcess>(m_Limits, [this]() -> ChildProcess::Work {
    auto patterns = std::make_shared<Patterns>(m_Patterns); // its own, to which what is sent later is added
    auto search = std::make_shared<ReportingSearch>(*patterns, m_Rules, m_Skips);
    return [patterns, search](const std::string& message, const ChildProcess::Send& send) {
      search->Answer(message, send);
    };
  });
}

bool Solver::SendNewPatterns() {
  for (; m_Known < m_Patterns.Count(); ++m_Known) {
    if (!m_Process->Put(NewPattern + m_Patterns.Text(static_cast<PatternNumber>(m_Known)))) {
      return false;
    }
  }
  m_Skips.resize(m_Known);
  return true;
}

ChildProcess::Ending Solver::EndProcess() {
  m_Spent += m_Process->ProcessorTime();
  ChildProcess::Ending ending = m_Process->End();
  m_Process = nullptr;
  return ending;
}

std::chrono::nanoseconds Solver::ProcessorTime() const {
  return m_Spent + (m_Process == nullptr ? std::chrono::nanoseconds() : m_Process->ProcessorTime());
}

/// Whether what the patterns begin with shows that no target matches all that it should, or that each matches one that
/// it should not.
bool Solver::IsTrivial(const Question& question) const {
  const auto& terms = question.within;
  for (const Question::Term outer : question.without) {
    const bool about_query = outer.on_path && m_Patterns.Beginning(outer.pattern).find('?') != std::string::npos;
    if (!about_query && std::any_of(terms.begin(), terms.end(), [&](Question::Term inner) {
          return m_Patterns.IsPlainlyWithin(inner.pattern, outer.pattern);
        })) {
      return true;
    }
  }
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
  const bool sent = SendNewPatterns() && m_Process->Put(Encoded(question));
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
    if (m_Process == nullptr) {
      Start();
    }
    if (Ask(question, answer)) {
      m_IsFresh = false;
      return answer;
    }
    const ChildProcess::Ending ending = EndProcess();
    if (!m_IsFresh && !ending.out_of_time) {
      continue; // what it remembered may have filled its memory
    }
    ++m_Failures;
    if (!m_Translates) {
      return {Answer::Kind::Unknown, "to find out takes " + ending.reason};
    }
    m_Skips[m_Translated] = true;
  }
}

} // namespace AccessDirectory
