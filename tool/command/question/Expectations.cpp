#include <iostream>
#include <istream>
#include <utility>

#include "directory/explain/Explanation.h"
#include "directory/Module.h"
#include "directory/policy/AccessRulesReader.h"
#include "directory/policy/Proof.h"
#include "directory/text/Vocabulary.h"
#include "directory/transfer/Input.h"
#include "tool/command/question/Proofs.h"
#include "tool/command/question/Question.h"

namespace Tool {

namespace {

/// One request and its verdict, or a sentence about all of them.
struct Expectation {
  Question question;
  bool allow = false;
  std::optional<Sentence> sentence;
  std::size_t line = 0;
  std::string text; ///< the line itself
};

[[noreturn]] void Refuse(std::size_t line, const std::string& text) {
  constexpr std::size_t ShownBytes = 200;
  throw Failure(Failure::Kind::Input, "line " + std::to_string(line) + ": " + Quoted(text.substr(0, ShownBytes)) +
                                          " is neither \"allow USER METHOD TARGET\" nor \"refuse USER METHOD TARGET\" "
                                          "with a known method, nor a sentence, such as \"nobody may DELETE "
                                          "anywhere\"");
}

Expectation ReadExpectation(std::size_t line, const std::string& text, const TargetRules& rules) {
  const std::size_t blank = text.find(' ');
  const std::string first = text.substr(0, blank);
  if (BeginsSentence(first)) {
    try {
      return {{}, false, ReadSentence(text, rules), line, text};
    } catch (const Failure& failure) {
      throw Failure(failure.What(), "line " + std::to_string(line) + ": " + failure.what());
    }
  }
  if (blank == std::string::npos || (first != "allow" && first != "refuse")) {
    Refuse(line, text);
  }
  const std::optional<Question> question = ReadQuestion(text.substr(blank + 1));
  if (!question) {
    Refuse(line, text);
  }
  return {*question, first == "allow", std::nullopt, line, text};
}

std::vector<Expectation> Read(const std::string& file, const TargetRules& rules) {
  Progress silent;
  Input input(file, silent);
  std::istream stream(&input);
  stream.exceptions(std::ios::badbit);
  std::vector<Expectation> expectations;
  std::string text;
  for (std::size_t line = 1; std::getline(stream, text); ++line) {
    if (!text.empty() && text.back() == '\r') {
      text.pop_back();
    }
    if (!text.empty() && text.front() != '#') {
      expectations.push_back(ReadExpectation(line, text, rules));
    }
  }
  return expectations;
}

struct Outcome {
  bool met;
  std::string reason; ///< why it is not
  Json json;
};

/// Holds one directory to expectations.
class Examiner {
public:
  Examiner(const std::string& file, const TargetRules& rules)
      : m_Module(file), m_Database(file, Database::Access::Read), m_Rules(rules), m_Solver(m_Patterns, m_Rules) {}

  Outcome Examine(const Expectation& expectation) {
    return expectation.sentence ? ExamineSentence(expectation) : ExamineRequest(expectation);
  }

private:
  Outcome ExamineRequest(const Expectation& expectation) {
    const Question& question = expectation.question;
    const Explanation explanation =
        Explain(m_Module, m_Database, Perenna::HTTPRequest(question.method, question.target), question.user);
    const bool met = explanation.allowed == expectation.allow;
    return {met,
            explanation.Reason(),
            {{"line", expectation.line},
             {"expected", expectation.allow ? "allow" : "refuse"},
             {"user_id", JsonText(question.user)},
             {"method", MethodToString(question.method)},
             {"url", JsonText(question.target)},
             {"met", met},
             {"reason", explanation.Reason()}}};
  }

  /// A sentence about a group or a user that there is not is not met: nobody would notice that it says nothing.
  Outcome ExamineSentence(const Expectation& expectation) {
    const Sentence& sentence = *expectation.sentence;
    if (!m_Policy) {
      m_Policy = ReadAccessRules(m_Database, m_Patterns);
    }
    Verdict verdict;
    try {
      verdict = Prove(sentence, *m_Policy, m_Patterns, m_Solver);
    } catch (const Failure& failure) {
      if (failure.What() != Failure::Kind::Input) {
        throw;
      }
      verdict.kind = Verdict::Kind::Unknown;
      verdict.why = failure.what();
    }
    const bool met = verdict.kind == Verdict::Kind::True;
    Json json = {{"line", expectation.line}};
    json.update(verdict.ToJson(sentence));
    json["met"] = met;
    return {met,
            verdict.kind == Verdict::Kind::False
                ? Shown(verdict.user) + ' ' + MethodToString(verdict.method) + ' ' + Shown(verdict.target) + " is " +
                      (sentence.may ? "refused" : "allowed")
                : verdict.why,
            std::move(json)};
  }

  Module m_Module;
  Database m_Database;
  const TargetRules& m_Rules;
  Patterns m_Patterns;
  std::optional<AccessRules> m_Policy; ///< read when a sentence first asks for it
  Solver m_Solver;
};

/// A line of TAP. A "#" would begin a directive.
std::string Description(const Expectation& expectation) {
  std::string text;
  for (const char byte : Shown(expectation.text, Backslash::Kept)) {
    text += byte == '#' ? "\\#" : std::string(1, byte);
  }
  return text;
}

} // namespace

std::optional<Question> ReadQuestion(std::string line) {
  if (!line.empty() && line.back() == '\r') { // a line end of another system
    line.pop_back();
  }
  const std::size_t last = line.rfind(' ');
  const std::size_t first = last == std::string::npos || last == 0 ? std::string::npos : line.rfind(' ', last - 1);
  if (first == std::string::npos || first == 0 || last + 1 == line.size()) {
    return std::nullopt;
  }
  Question question;
  question.user.assign(line, 0, first);
  question.target.assign(line, last + 1);
  const bool known = Perenna::StringToMethod(line.substr(first + 1, last - first - 1), question.method);
  return known ? std::optional<Question>(std::move(question)) : std::nullopt;
}

ExitStatus CheckExpectations(const Context& context, const std::string& file, const std::string& target) {
  const TargetRules rules = RulesFor(context, target);
  const std::vector<Expectation> expectations = Read(file, rules);
  if (expectations.empty()) {
    throw Failure(Failure::Kind::Input, "the file holds no expectation: one is expected a line, allow or refuse, USER "
                                        "METHOD TARGET, or a sentence");
  }
  Examiner examiner(context.DatabaseFile(), rules);
  Json results = Json::array();
  std::size_t failed = 0;
  if (!context.WantsJson()) {
    std::cout << "TAP version 13\n1.." << expectations.size() << '\n';
  }
  for (std::size_t number = 0; number < expectations.size(); ++number) {
    const Expectation& expectation = expectations[number];
    Outcome outcome = examiner.Examine(expectation);
    failed += outcome.met ? 0 : 1;
    if (context.WantsJson()) {
      results.push_back(std::move(outcome.json));
      continue;
    }
    std::cout << (outcome.met ? "ok " : "not ok ") << number + 1 << " - " << Description(expectation) << '\n';
    if (!outcome.met) {
      std::cout << "  ---\n  line: " << expectation.line
                << "\n  reason: " << Json(outcome.reason).dump(-1, ' ', true, Json::error_handler_t::replace)
                << "\n  ...\n";
    }
  }
  if (context.WantsJson()) {
    PrintJson({{"total", expectations.size()}, {"failed", failed}, {"results", std::move(results)}});
  }
  return failed == 0 ? ExitStatus::Done : ExitStatus::Refused;
}

} // namespace Tool
