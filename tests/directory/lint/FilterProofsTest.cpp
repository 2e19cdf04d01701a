// What lint proves of filters: no target that is tried says otherwise, and where none does it is said.

#include <algorithm>
#include <random>
#include <set>

#include <gtest/gtest.h>

#include "directory/lint/Lint.h"

namespace AccessDirectory {

namespace {

constexpr std::size_t GroupCount = 3;
constexpr std::size_t UserCount = 3;

struct Row {
  std::size_t group;
  bool allows;
  PatternNumber pattern;
};

bool IsTarget(const std::string& text) {
  return text.front() == '/' && text.find("//") == std::string::npos && text.find('?') == std::string::npos;
}

std::vector<std::string> SomeTargets() {
  std::vector<std::string> targets = {"/"};
  for (std::size_t i = 0; i < targets.size() && targets.size() < 1500; ++i) {
    for (const char* const piece : {"a", "b", "c", ".png", "/"}) {
      if (IsTarget(targets[i] + piece)) {
        targets.push_back(targets[i] + piece);
      }
    }
  }
  return targets;
}

/// A directory of random filters, and what holds for them on the targets that are tried.
class Tried {
public:
  Tried(unsigned seed, const Patterns& patterns, const std::vector<std::string>& targets)
      : m_Patterns(patterns), m_Targets(targets) {
    std::mt19937 random(seed);
    for (auto& groups : m_Groups) {
      groups = {random() % GroupCount, random() % GroupCount};
    }
    std::set<std::string> seen;
    for (int i = 0; i < 9; ++i) {
      const Row row = {random() % GroupCount, random() % 2 == 0,
                       static_cast<PatternNumber>(random() % patterns.Count())};
      if (seen.insert(std::to_string(row.group) + (row.allows ? "a" : "d") + std::to_string(row.pattern)).second) {
        m_Rows.push_back(row);
      }
    }
  }

  StoredDirectory Stored() const {
    StoredDirectory stored = {StoredRows(UserColumn::Count), StoredRows(GroupColumn::Count),
                              StoredRows(MembershipColumn::Count), StoredRows(FilterColumn::Count)};
    const auto append = [&stored](SectionNumber section, const std::vector<std::string>& texts) {
      stored.at(section).texts.Append(texts);
      stored.at(section).rowids.push_back(static_cast<long long>(stored.at(section).rowids.size()));
      stored.at(section).blobs.push_back(0);
    };
    for (std::size_t group = 0; group < GroupCount; ++group) {
      append(Groups, {std::to_string(group), ""});
    }
    for (std::size_t user = 0; user < UserCount; ++user) {
      append(Users, {"u" + std::to_string(user), "plain_pw", "x", "", ""});
      for (const std::size_t group : m_Groups.at(user)) {
        append(Memberships, {std::to_string(group), "u" + std::to_string(user)});
      }
    }
    for (const Row& row : m_Rows) {
      append(Filters, {"GET", std::to_string(row.group), m_Patterns.Text(row.pattern), row.allows ? "Allow" : "Deny"});
    }
    return stored;
  }

  std::string KindOf(std::size_t number) const {
    const Row& row = m_Rows[number];
    const bool is_denied = row.allows && std::any_of(m_Rows.begin(), m_Rows.end(), [&row](const Row& other) {
                             return other.group == row.group && other.pattern == row.pattern && !other.allows;
                           });
    bool has_members = is_denied; // who would be members is refused
    bool differs = false;
    for (const auto& groups : m_Groups) {
      if (groups.count(row.group) > 0) {
        has_members = true;
        differs = differs || MakesADifference(row, groups);
      }
    }
    if (has_members && !differs) {
      return row.allows ? "filter-overruled" : "filter-idle";
    }
    const auto contains = [&](const Row& other) {
      const auto place = static_cast<std::size_t>(&other - m_Rows.data());
      return other.group == row.group && other.allows == row.allows && place != number && IsWithin(row, other) &&
             (place < number || !IsWithin(other, row));
    };
    return std::any_of(m_Rows.begin(), m_Rows.end(), contains) ? "filter-contained" : "";
  }

  std::size_t Count() const { return m_Rows.size(); }

private:
  bool Matches(const Row& row, const std::string& target) const { return m_Patterns.Matches(row.pattern, target); }

  bool IsWithin(const Row& inner, const Row& outer) const {
    return std::all_of(m_Targets.begin(), m_Targets.end(),
                       [&](const std::string& target) { return !Matches(inner, target) || Matches(outer, target); });
  }

  /// Whether an Allow matches something that no Deny does, or a Deny something that an Allow does.
  bool MakesADifference(const Row& row, const std::set<std::size_t>& groups) const {
    return std::any_of(m_Targets.begin(), m_Targets.end(), [&](const std::string& target) {
      const bool other = std::any_of(m_Rows.begin(), m_Rows.end(), [&](const Row& each) {
        return each.allows != row.allows && groups.count(each.group) > 0 && Matches(each, target);
      });
      return Matches(row, target) && other != row.allows;
    });
  }

  const Patterns& m_Patterns;
  const std::vector<std::string>& m_Targets;
  std::array<std::set<std::size_t>, UserCount> m_Groups;
  std::vector<Row> m_Rows;
};

} // namespace

TEST(FilterProofs, AgreeWithTheTargetsThatAreTried) {
  Patterns patterns;
  for (const char* const pattern : {"^/", "^/a", "^/a(/|$)", "^/a/b", "^/b", "[.]png$", "/b$", "^/(a|b)/",
                                    "^/a/.*[.]png$", "^/[^/]*$", "^/[^/]+/", "^/a$", "^/c", "^/[abc]$"}) {
    patterns.Add(pattern);
  }
  const std::vector<std::string> targets = SomeTargets();
  const std::set<std::string> kinds = {"filter-overruled", "filter-idle", "filter-contained"};
  std::map<std::string, int> counts;
  for (unsigned seed = 0; seed < 60; ++seed) {
    const Tried tried(seed, patterns, targets);
    const StoredDirectory stored = tried.Stored();
    FilterProofs proofs(stored, {false, {}, IsTarget}, std::chrono::minutes(1));
    const Mender mender("access.db", {});
    Progress progress;
    std::vector<std::string> found(tried.Count());
    for (const Finding& finding : Lint(stored, mender, proofs, progress).Run()) {
      if (finding.section == Filters && kinds.count(finding.kind->name) > 0) {
        found[finding.row] = finding.kind->name;
      }
    }
    EXPECT_EQ(proofs.Counted().left_out + proofs.Counted().unknown, 0U);
    for (std::size_t row = 0; row < found.size(); ++row) {
      EXPECT_EQ(found[row], tried.KindOf(row)) << "seed " << seed << ", row " << row;
      ++counts[found[row]];
    }
  }
  for (const std::string& kind : kinds) {
    EXPECT_GT(counts[kind], 20) << kind;
  }
}

} // namespace AccessDirectory
