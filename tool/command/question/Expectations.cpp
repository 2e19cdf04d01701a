#include <iostream>
#include <istream>
#include <utility>

#include "directory/explain/Explanation.h"
#include "directory/Module.h"
#include "directory/text/Vocabulary.h"
#include "directory/transfer/Input.h"
#include "tool/command/question/Question.h"

namespace Tool {

namespace {

struct Expectation {
  Question question;
  bool allow = false;
  std::size_t line = 0;
  std::string text; ///< the line itself
};

[[noreturn]] void Refuse(std::size_t line, const std::string& text) {
  constexpr std::size_t ShownBytes = 200;
  throw Failure(Failure::Kind::Input, "line " + std::to_string(line) + ": " + Quoted(text.substr(0, ShownBytes)) +
                                          " is not \"allow USER METHOD TARGET\" or \"refuse USER METHOD TARGET\" "
                                          "with a known method");
}

std::vector<Expectation> Read(const std::string& file) {
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
    if (text.empty() || text.front() == '#') {
      continue;
    }
    const std::size_t blank = text.find(' ');
    const std::string verb = text.substr(0, blank);
    if (blank == std::string::npos || (verb != "allow" && verb != "refuse")) {
      Refuse(line, text);
    }
    const std::optional<Question> question = ReadQuestion(text.substr(blank + 1));
    if (!question) {
      Refuse(line, text);
    }
    expectations.push_back({*question, verb == "allow", line, text});
  }
  return expectations;
}

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

ExitStatus CheckExpectations(const Context& context, const std::string& file) {
  const std::vector<Expectation> expectations = Read(file);
  if (expectations.empty()) {
    throw Failure(Failure::Kind::Input, "the file holds no expectation: one is expected a line, allow or refuse, USER "
                                        "METHOD TARGET");
  }
  Module module(context.DatabaseFile());
  Database database(context.DatabaseFile(), Database::Access::Read);
  Json results = Json::array();
  std::size_t failed = 0;
  if (!context.WantsJson()) {
    std::cout << "TAP version 13\n1.." << expectations.size() << '\n';
  }
  for (std::size_t number = 0; number < expectations.size(); ++number) {
    const Expectation& expectation = expectations[number];
    const Question& question = expectation.question;
    const Explanation explanation =
        Explain(module, database, Perenna::HTTPRequest(question.method, question.target), question.user);
    const bool met = explanation.allowed == expectation.allow;
    failed += met ? 0 : 1;
    if (context.WantsJson()) {
      results.push_back({{"line", expectation.line},
                         {"expected", expectation.allow ? "allow" : "refuse"},
                         {"user_id", JsonText(question.user)},
                         {"method", MethodToString(question.method)},
                         {"url", JsonText(question.target)},
                         {"met", met},
                         {"reason", explanation.Reason()}});
      continue;
    }
    std::cout << (met ? "ok " : "not ok ") << number + 1 << " - " << Description(expectation) << '\n';
    if (!met) {
      std::cout << "  ---\n  line: " << expectation.line
                << "\n  reason: " << Json(explanation.Reason()).dump(-1, ' ', true, Json::error_handler_t::replace)
                << "\n  ...\n";
    }
  }
  if (context.WantsJson()) {
    PrintJson({{"total", expectations.size()}, {"failed", failed}, {"results", std::move(results)}});
  }
  return failed == 0 ? ExitStatus::Done : ExitStatus::Refused;
}

} // namespace Tool
