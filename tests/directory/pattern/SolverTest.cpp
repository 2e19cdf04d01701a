// Questions about all targets: what is found is tried, what takes too long is unknown.

#include <gtest/gtest.h>

#include "directory/pattern/Solver.h"

namespace AccessDirectory {

namespace {

class SolverTest : public testing::Test {
protected:
  Answer Find(std::initializer_list<const char*> within, std::initializer_list<const char*> without,
              TargetRules rules = {}) {
    m_Rules = std::move(rules);
    return Solver(m_Patterns, m_Rules, {1, std::size_t{256} * 1024 * 1024}).Find({Terms(within), Terms(without)});
  }

  std::vector<Question::Term> Terms(std::initializer_list<const char*> patterns) {
    std::vector<Question::Term> terms;
    for (const char* const pattern : patterns) {
      terms.push_back({m_Patterns.Add(pattern), false});
    }
    return terms;
  }

  Patterns m_Patterns;
  TargetRules m_Rules;
};

} // namespace

TEST_F(SolverTest, FindsTargetsOrThatThereAreNone) {
  const struct {
    std::initializer_list<const char*> within;
    std::initializer_list<const char*> without;
    Answer::Kind kind;
    std::string text;
  } cases[] = {
      {{}, {}, Answer::Kind::Witness, "/"},
      {{"^/articles"}, {"^/articles(/|$)"}, Answer::Kind::Witness, "/articlesa"},
      {{"^/articles(/|$)"}, {"^/articles"}, Answer::Kind::None, ""},
      {{"^/a/", "[.]png$"}, {"/a[.]", "^/a/[^/]*$"}, Answer::Kind::Witness, "/a/a/.png"},
      {{"^/a"}, {"^/ab?c?", "/z"}, Answer::Kind::None, ""},
      {{"^/[a-c]$"}, {"^/a", "^/b", "^/(c|d)"}, Answer::Kind::None, ""},
      {{"//"}, {}, Answer::Kind::None, ""},
      {{"^articles"}, {}, Answer::Kind::None, ""},
      {{"(^/)+a"}, {"^/"}, Answer::Kind::None, ""}, // without a look at what has no automaton
      {{"^/(a|b)\\1"}, {}, Answer::Kind::Unknown, "back-reference"},
      {{"^/[ab]$"}, {"\\ba", "\\bb"}, Answer::Kind::None, ""}, // the targets are tried one by one
      {{"^/"}, {"\\b"}, Answer::Kind::Witness, "/"},
      {{"^/a"}, {"\\ba"}, Answer::Kind::Unknown, "words"},
      {{"a[!-~]{12}b"}, {}, Answer::Kind::Unknown, "too large"},
  };
  for (const auto& [within, without, kind, text] : cases) {
    const Answer answer = Find(within, without);
    const std::string first = within.size() == 0 ? "" : *within.begin();
    EXPECT_EQ(answer.kind, kind) << first << ": " << answer.text;
    EXPECT_NE(answer.text.find(text), std::string::npos) << first << ": " << answer.text;
  }
}

TEST_F(SolverTest, GoesOnAfterAPatternThatTakesTooLong) {
  Solver solver(m_Patterns, m_Rules, {1, std::size_t{256} * 1024 * 1024});
  EXPECT_EQ(solver.Find({Terms({"a[!-~]{12}b"}), {}}).kind, Answer::Kind::Unknown);
  EXPECT_EQ(solver.Find({Terms({"^/x$"}), {}}).text, "/x");
}

TEST_F(SolverTest, AsksTheHostAboutEachTarget) {
  const TargetRules rules = {false, {}, [](const std::string& target) { return target != "/a"; }};
  EXPECT_EQ(Find({"^/[ab]$"}, {}, rules).text, "/b");
  EXPECT_EQ(Find({"^/a$"}, {}, rules).kind, Answer::Kind::None);
}

TEST_F(SolverTest, TellsPathsFromQueries) {
  const TargetRules rules = {true, {}, nullptr};
  EXPECT_EQ(Find({"[.]png$"}, {"^[^?]*[.]png"}, rules).text, "/?.png");
  m_Rules = rules;
  const PatternNumber pattern = m_Patterns.Add("^/a([?]|$)");
  EXPECT_EQ(Solver(m_Patterns, m_Rules).Find({{{pattern, false}}, {{pattern, true}}}).kind, Answer::Kind::None);
}

} // namespace AccessDirectory
