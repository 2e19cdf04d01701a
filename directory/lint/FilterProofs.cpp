#include "directory/lint/FilterProofs.h"

#include <algorithm>
#include <ctime>
#include <set>

#include "directory/lint/pattern/PatternQueries.h"

namespace AccessDirectory {

namespace {

// A question of lint's is one of thousands: those that take long stay open.
constexpr ChildProcess::Limits LimitsOfOne = {1, std::size_t{256} * 1024 * 1024};

std::chrono::nanoseconds ThreadTime() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

bool MatchesAny(const Patterns& patterns, const std::vector<PatternNumber>& numbers, const std::string& target) {
  return std::any_of(numbers.begin(), numbers.end(),
                     [&](PatternNumber number) { return patterns.Matches(number, target); });
}

std::string PathOf(const std::string& target) {
  return target.substr(0, target.find('?'));
}

} // namespace

FilterProofs::FilterProofs(const StoredDirectory& stored, TargetRules rules, std::chrono::milliseconds budget)
    : m_Rules(std::move(rules)), m_Policy(stored, m_Patterns), m_Solver(m_Patterns, m_Rules, LimitsOfOne),
      m_Samples(m_Patterns, m_Rules), m_Classes(ClassesOf(m_Policy)), m_Budget(budget), m_Begin(ThreadTime()) {
  for (std::size_t number = 0; number < m_Classes.size(); ++number) {
    for (const std::string& group : m_Classes[number].groups) {
      m_ClassesOfGroup[group].push_back(number);
    }
  }
}

std::string FilterProofs::KeyOf(const Filter& filter) {
  return filter.group + '\0' + MethodToString(filter.method) + (filter.allows ? 'a' : 'd');
}

void FilterProofs::Know(const Filter& filter) {
  const PatternNumber pattern = m_Patterns.Add(filter.pattern);
  m_Neighbours[KeyOf(filter)].emplace(m_Patterns.Beginning(pattern), Neighbour{pattern, filter.row});
}

std::chrono::nanoseconds FilterProofs::Spent() const {
  return ThreadTime() - m_Begin + m_Solver.ProcessorTime();
}

bool FilterProofs::IsSpent() {
  const bool spent = Spent() > m_Budget;
  m_IsUnknown = m_IsUnknown || spent;
  return spent;
}

bool FilterProofs::Begin(const Filter& filter) {
  const PatternNumber pattern = m_Patterns.Add(filter.pattern);
  const bool has_other_targets = filter.method == Perenna::METH_CONNECT || // a host and a port
                                 (filter.method == Perenna::METH_OPTIONS && m_Patterns.Matches(pattern, "*"));
  if (has_other_targets) {
    return false;
  }
  ++m_Counts.filters;
  m_IsUnknown = false;
  if (IsSpent()) {
    ++m_Counts.left_out;
    return false;
  }
  m_Filter = &filter;
  m_Pattern = pattern;
  return true;
}

void FilterProofs::End() {
  if (m_IsUnknown) {
    ++(IsSpent() ? m_Counts.left_out : m_Counts.unknown);
  }
}

Answer FilterProofs::Ask(const Question& question) {
  if (IsSpent()) {
    return {Answer::Kind::Unknown, "the time for it is over"};
  }
  Answer answer = m_Solver.Find(question);
  m_IsUnknown = m_IsUnknown || answer.kind == Answer::Kind::Unknown;
  if (answer.kind == Answer::Kind::Witness) {
    for (const Question::Term term : question.within) {
      if (!term.on_path) {
        m_Samples.Add(term.pattern, answer.text);
      }
    }
  }
  return answer;
}

bool FilterProofs::IsNone(const Question& question) {
  return Ask(question).kind == Answer::Kind::None;
}

FilterProofs::Proven FilterProofs::WithSample(const std::string& other) {
  const PatternSamples::Texts& samples = m_Samples.Of(m_Pattern);
  return samples.empty() ? Proven() : Proven({samples.front(), other});
}

bool FilterProofs::MatchesNothing() {
  return m_Samples.Of(m_Pattern).empty() && IsNone({{Whole()}, {}});
}

const std::vector<std::size_t>& FilterProofs::Members() {
  return m_ClassesOfGroup[m_Filter->group];
}

const Rules& FilterProofs::RulesFor(std::size_t users) {
  const auto [entry, is_new] = m_RulesOfClass.emplace(std::make_pair(users, m_Filter->method), Rules());
  if (is_new) {
    entry->second = m_Policy.RulesOf(m_Classes[users].groups, m_Filter->method);
  }
  return entry->second;
}

FilterProofs::Proven FilterProofs::Overruled() {
  std::set<std::vector<PatternNumber>> ways; // in which members are refused
  for (const std::size_t users : Members()) {
    const Rules& rules = RulesFor(users);
    const auto granted = [&](const std::string& target) { return !MatchesAny(m_Patterns, rules.denies, target); };
    const PatternSamples::Texts& samples = m_Samples.Of(m_Pattern);
    // What members in doubt ask for is refused anyway, for another reason than a Deny.
    if (IsSpent() || rules.in_doubt || rules.denies.empty() || std::any_of(samples.begin(), samples.end(), granted)) {
      return std::nullopt;
    }
    ways.insert(rules.denies);
  }
  for (std::vector<PatternNumber> denies : ways) {
    const auto apart = [this](PatternNumber deny) { return m_Patterns.AreApart(m_Pattern, deny); };
    denies.erase(std::remove_if(denies.begin(), denies.end(), apart), denies.end());
    if (!IsNone({{Whole()}, TermsOf(denies)})) {
      return std::nullopt;
    }
  }
  Proven proven = ways.empty() ? std::nullopt : WithSample();
  for (const PatternNumber deny : proven ? *ways.begin() : std::vector<PatternNumber>()) {
    if (proven->other.empty() && m_Patterns.Matches(deny, proven->target)) {
      proven->other = m_Patterns.Text(deny);
    }
  }
  return proven;
}

bool FilterProofs::MeetsAnAllow(PatternNumber allow) {
  const auto matches = [this](PatternNumber pattern) {
    return [this, pattern](const std::string& target) { return m_Patterns.Matches(pattern, target); };
  };
  const PatternSamples::Texts& own = m_Samples.Of(m_Pattern);
  if (std::any_of(own.begin(), own.end(), matches(allow))) {
    return true;
  }
  const PatternSamples::Texts& others = m_Samples.Of(allow);
  return std::any_of(others.begin(), others.end(), matches(m_Pattern));
}

FilterProofs::Proven FilterProofs::Idle() {
  std::set<PatternNumber> allows; // of all members
  for (const std::size_t users : Members()) {
    const Rules& rules = RulesFor(users);
    if (IsSpent() || rules.in_doubt) {
      return std::nullopt;
    }
    allows.insert(rules.allows.begin(), rules.allows.end());
  }
  const auto possible = [this](PatternNumber allow) { return !m_Patterns.AreApart(m_Pattern, allow); };
  std::vector<PatternNumber> near;
  std::copy_if(allows.begin(), allows.end(), std::back_inserter(near), possible);
  const auto meets = [this](PatternNumber allow) { return MeetsAnAllow(allow); };
  if (allows.empty() || std::any_of(near.begin(), near.end(), meets)) {
    return std::nullopt;
  }
  const bool idle = std::all_of(near.begin(), near.end(), [this](PatternNumber allow) {
    return IsNone({{Whole(), {allow, false}}, {}});
  });
  return idle ? WithSample() : std::nullopt;
}

bool FilterProofs::IsContainedIn(const Neighbour& other) {
  const auto matches = [&](const std::string& target) { return m_Patterns.Matches(other.pattern, target); };
  const PatternSamples::Texts& samples = m_Samples.Of(m_Pattern);
  const Question::Term others = {other.pattern, false};
  return other.pattern != m_Pattern && std::all_of(samples.begin(), samples.end(), matches) &&
         IsNone({{Whole()}, {others}}) &&
         (other.row < m_Filter->row || Ask({{others}, {Whole()}}).kind == Answer::Kind::Witness);
}

FilterProofs::Proven FilterProofs::Contained() {
  const Neighbours& neighbours = m_Neighbours[KeyOf(*m_Filter)];
  const std::string& beginning = m_Patterns.Beginning(m_Pattern);
  // Only what begins alike can match the same: with a part of this beginning, or with more than it.
  for (std::size_t length = 0; length <= beginning.size(); ++length) {
    const auto [first, last] = neighbours.equal_range(beginning.substr(0, length));
    for (auto other = first; other != last && !IsSpent(); ++other) {
      if (IsContainedIn(other->second)) {
        return WithSample(m_Patterns.Text(other->second.pattern));
      }
    }
  }
  for (auto other = neighbours.upper_bound(beginning);
       other != neighbours.end() && other->first.compare(0, beginning.size(), beginning) == 0 && !IsSpent(); ++other) {
    if (IsContainedIn(other->second)) {
      return WithSample(m_Patterns.Text(other->second.pattern));
    }
  }
  return std::nullopt;
}

FilterProofs::Proven FilterProofs::ReachesQuery() {
  if (!m_Rules.with_query || !ReadPatternQueries(m_Filter->pattern).may_reach) {
    return std::nullopt;
  }
  const auto [known, is_new] = m_Reaching.emplace(m_Pattern, std::nullopt);
  if (is_new) {
    const Answer answer = Ask({{Whole()}, {OnPath()}});
    if (answer.kind == Answer::Kind::Witness) {
      known->second = {answer.text, {}};
    }
  }
  return known->second;
}

/// A target that a query keeps from matching.
Answer FilterProofs::FindEvasion() {
  for (const std::string& sample : m_Samples.Of(m_Pattern)) {
    const std::string target = PathOf(sample) + "?a";
    if (m_Patterns.Matches(m_Pattern, PathOf(sample)) && !m_Patterns.Matches(m_Pattern, target) &&
        m_Rules.admits(target)) {
      return {Answer::Kind::Witness, target};
    }
  }
  return Ask({{OnPath()}, {Whole()}});
}

FilterProofs::Proven FilterProofs::EvadedByQuery() {
  const PatternQueries queries = ReadPatternQueries(m_Filter->pattern);
  if (!m_Rules.with_query || !queries.may_be_evaded) {
    return std::nullopt;
  }
  const Answer answer = FindEvasion();
  if (answer.kind != Answer::Kind::Witness) {
    return std::nullopt;
  }
  Proof proof = {answer.text, queries.better};
  if (!queries.better.empty()) {
    const Question::Term others = {m_Patterns.Add(queries.better), false};
    const bool is_better = m_Patterns.Matches(others.pattern, answer.text) &&
                           (queries.is_better || (IsNone({{OnPath()}, {others}}) && IsNone({{Whole()}, {others}})));
    proof.other = is_better ? queries.better : "";
  }
  return proof;
}

Answer FilterProofs::Beyond(const std::string& narrower) {
  const PatternNumber other = m_Patterns.Add(narrower);
  for (const std::string& sample : m_Samples.Of(m_Pattern)) {
    if (!m_Patterns.Matches(other, sample)) {
      return {Answer::Kind::Witness, sample};
    }
  }
  return Ask({{Whole()}, {{other, false}}});
}

} // namespace AccessDirectory
