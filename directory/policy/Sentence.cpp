#include "directory/policy/Sentence.h"

#include <algorithm>
#include <sstream>

#include "directory/Failure.h"
#include "directory/pattern/Patterns.h"
#include "directory/text/Text.h"
#include "directory/text/Vocabulary.h"

namespace AccessDirectory {

namespace {

constexpr const char* Blanks = " \t\r";

struct Word {
  std::string text;
  bool quoted = false;
};

/// The words of a sentence, read from left to right.
class Words {
public:
  explicit Words(const std::string& sentence) : m_Sentence(sentence) {
    for (std::size_t at = sentence.find_first_not_of(Blanks); at != std::string::npos;
         at = sentence.find_first_not_of(Blanks, at)) {
      sentence[at] == '"' ? AddQuoted(at) : AddPlain(at);
    }
  }

  [[noreturn]] void Fail(const std::string& what) const {
    throw Failure(Failure::Kind::Input, Quoted(m_Sentence) + ": " + what);
  }

  bool AtEnd() const { return m_Next == m_Words.size(); }

  /// Takes these words if they come next.
  bool Take(const std::vector<const char*>& words) {
    std::size_t at = m_Next;
    for (const char* const word : words) {
      if (at == m_Words.size() || m_Words[at].quoted || m_Words[at].text != word) {
        return false;
      }
      ++at;
    }
    m_Next = at;
    return true;
  }

  std::string Next(const std::string& expected) {
    if (AtEnd()) {
      Fail("it ends where " + expected + " is expected");
    }
    return m_Words[m_Next++].text;
  }

  /// What comes next, for messages.
  std::string Ahead() const { return AtEnd() ? "its end" : Quoted(m_Words[m_Next].text); }

private:
  void AddPlain(std::size_t& at) {
    const std::size_t end = std::min(m_Sentence.find_first_of(Blanks, at), m_Sentence.size());
    m_Words.push_back({m_Sentence.substr(at, end - at), false});
    at = end;
  }

  void AddQuoted(std::size_t& at) {
    Word word = {{}, true};
    for (++at; at < m_Sentence.size() && m_Sentence[at] != '"'; ++at) {
      at += m_Sentence[at] == '\\' && m_Sentence.substr(at + 1, 1) == "\"" ? 1 : 0;
      word.text += m_Sentence[at];
    }
    if (at == m_Sentence.size()) {
      Fail("a quotation mark is not closed");
    }
    ++at;
    m_Words.push_back(std::move(word));
  }

  const std::string& m_Sentence;
  std::vector<Word> m_Words;
  std::size_t m_Next = 0;
};

struct SubjectForm {
  std::vector<const char*> words;
  Sentence::Subject subject;
  bool may;
  const char* name; ///< what has to follow; null: nothing
};

const std::vector<SubjectForm>& SubjectForms() {
  using Subject = Sentence::Subject;
  static const std::vector<SubjectForm> forms = {{{"nobody", "outside"}, Subject::Others, false, "a group"},
                                                 {{"nobody"}, Subject::All, false, nullptr},
                                                 {{"no", "member", "of"}, Subject::Members, false, "a group"},
                                                 {{"everybody", "in"}, Subject::Members, true, "a group"},
                                                 {{"every", "member", "of"}, Subject::Members, true, "a group"},
                                                 {{"everybody"}, Subject::All, true, nullptr},
                                                 {{"user"}, Subject::User, true, "a user"}};
  return forms;
}

void ReadSubject(Words& words, Sentence& sentence) {
  for (const SubjectForm& form : SubjectForms()) {
    if (words.Take(form.words)) {
      sentence.subject = form.subject;
      sentence.may = form.may;
      sentence.name = form.name == nullptr ? "" : words.Next(form.name);
      return;
    }
  }
  words.Fail("it begins with " + words.Ahead() +
             ", not with \"nobody\", \"nobody outside GROUP\", \"no member of GROUP\", \"everybody\", \"everybody in "
             "GROUP\", \"every member of GROUP\" or \"user USER\"");
}

void AddMethods(const std::string& names, Sentence& sentence) {
  std::istringstream list(names);
  for (std::string name; std::getline(list, name, ',');) {
    if (!name.empty()) {
      sentence.methods.push_back(KnownMethod(name));
    }
  }
}

void ReadMethods(Words& words, Sentence& sentence) {
  if (words.Take({"do", "anything"})) {
    for (std::uint32_t method = 0; method < Perenna::METH_MAX; ++method) {
      sentence.methods.push_back(static_cast<Perenna::Method_t>(method));
    }
    return;
  }
  bool more = true;
  while (more) {
    const std::string names = words.Next("a method, or \"do anything\",");
    AddMethods(names, sentence);
    const bool joined = words.Take({"and"}) || words.Take({"or"});
    more = joined || names.back() == ',';
  }
}

/// The pattern of a path, and of what follows it in the targets that are meant.
std::string PlaceOf(const Words& words, std::string path, const TargetRules& rules, const char* with_rest) {
  if (path.empty() || path.front() != '/') {
    words.Fail(Quoted(path) + " is no path: one begins with \"/\"");
  }
  if ((rules.admits && !rules.admits(path)) || path.find('?') != std::string::npos) {
    words.Fail("no request is judged for " + Quoted(path) + ": it is no path in normal form");
  }
  if (path.size() > 1 && path.back() == '/' && std::string(with_rest) != "([?]|$)") {
    path.pop_back();
  }
  return "^" + Literally(path == "/" && with_rest[0] == '/' ? "" : path) + with_rest;
}

void ReadPlace(Words& words, Sentence& sentence, const TargetRules& rules) {
  if (words.Take({"anywhere"})) {
    sentence.place = "^/";
  } else if (words.Take({"matching"})) {
    sentence.place = words.Next("a pattern");
    std::string fault;
    CompilePattern(sentence.place, fault);
    if (!fault.empty()) {
      words.Fail("the pattern is " + fault);
    }
  } else if (words.Take({"below"})) {
    sentence.place = PlaceOf(words, words.Next("a path"), rules, "/[^?]");
  } else {
    const std::string path = words.Next("\"anywhere\", \"below\", \"matching\" or a path");
    const bool below = words.Take({"and", "all", "below"});
    sentence.place = below && path == "/" ? "^/" : PlaceOf(words, path, rules, below ? "([/?]|$)" : "([?]|$)");
  }
}

} // namespace

bool BeginsSentence(const std::string& word) {
  return std::any_of(SubjectForms().begin(), SubjectForms().end(),
                     [&word](const SubjectForm& form) { return *form.words.begin() == word; });
}

Sentence ReadSentence(const std::string& text, const TargetRules& rules) {
  Sentence sentence;
  sentence.text = text;
  Words words(text);
  ReadSubject(words, sentence);
  if (!words.Take({"may"})) {
    words.Fail("\"may\" is expected in the place of " + words.Ahead());
  }
  if (words.Take({"not"})) {
    if (sentence.subject != Sentence::Subject::User) {
      words.Fail("\"may not\" is said of one user only: say \"nobody may\" or \"no member of GROUP may\"");
    }
    sentence.may = false;
  }
  ReadMethods(words, sentence);
  ReadPlace(words, sentence, rules);
  if (!words.AtEnd()) {
    words.Fail("it goes on with " + words.Ahead() + " where its end is expected");
  }
  return sentence;
}

std::vector<Sentence> ReadSentences(const std::string& text, const TargetRules& rules) {
  std::vector<Sentence> sentences;
  std::istringstream lines(text);
  std::size_t number = 0;
  for (std::string line; std::getline(lines, line);) {
    ++number;
    const std::size_t begin = line.find_first_not_of(Blanks);
    if (begin == std::string::npos || line[begin] == '#') {
      continue;
    }
    const std::size_t end = line.find_last_not_of(Blanks);
    try {
      sentences.push_back(ReadSentence(line.substr(begin, end + 1 - begin), rules));
    } catch (const Failure& failure) {
      throw Failure(failure.What(), "line " + std::to_string(number) + ": " + failure.what());
    }
  }
  return sentences;
}

} // namespace AccessDirectory
