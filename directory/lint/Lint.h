#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "directory/lint/FilterProofs.h"
#include "directory/lint/LintKinds.h"
#include "directory/lint/Mender.h"
#include "directory/lint/pattern/PatternFindings.h"
#include "directory/Progress.h"
#include "directory/StoredDirectory.h"

namespace AccessDirectory {

/// Something found in one row, or about the file.
struct Finding {
  const LintKind* kind;
  SectionNumber section; ///< SectionCount: the file; there is no row then
  std::size_t row;
  std::string why;
  std::string mend; ///< a command that begins with "perenna-access", or what to do where there is none
};

/// Which findings are of a kind.
struct FindingsOfKind {
  const LintKind* kind;
  std::vector<std::size_t> findings; ///< their places, ascending
};

/// What there is to say about the file's owner and mode; nothing when only its owner may open it.
std::vector<Finding> LintFile(const std::string& file);

/// Sorts findings by kind: problems first, then in the order of the first finding of each.
std::vector<FindingsOfKind> ByKind(const std::vector<Finding>& findings);

/// Looks for rows that cannot do what they say, or do more than they seem to.
class Lint {
public:
  /// All arguments outlive the object; the proofs are about the same directory.
  Lint(const StoredDirectory& stored, const Mender& mender, FilterProofs& proofs, Progress& progress);

  /// All findings, table by table in the order of the rows. Called once.
  std::vector<Finding> Run();

private:
  using RowNumbers = std::vector<std::size_t>;
  using RowOfId = std::unordered_map<std::string_view, std::size_t>;
  using CommandOfId = std::unordered_map<std::string, Mender::Command>;
  using RowsOfId = std::unordered_map<std::string_view, RowNumbers>;

  const StoredRows& In(SectionNumber section) const { return m_Stored[section]; }
  std::string Text(SectionNumber section, std::size_t row, std::size_t column) const {
    return In(section).Text(row, column);
  }

  void Index();
  void IndexFilters();
  void IndexAllowedMethods();
  void Add(const LintKind& kind, SectionNumber section, std::size_t row, std::string why, std::string mend);

  /// Adds a finding for a row with cells that no text is ever equal to, or whose texts no argument can name; false when
  /// there is none, and only then are there commands for the row.
  bool AddUnreachable(SectionNumber section, std::size_t row, std::size_t id_columns);
  std::string DeleteRow(SectionNumber section, std::size_t row) const;

  void CheckUser(std::size_t row);
  void CheckUserId(std::size_t row);
  void CheckCredential(std::size_t row);
  void CheckPasswordExpression(std::size_t row, const std::string& expression);
  void CheckThumbprint(std::size_t row, const std::string& thumbprint);
  void CheckRights(std::size_t row);
  std::string NewPassword(std::size_t row) const;
  std::string NewCertificate(std::size_t row) const;

  void CheckGroup(std::size_t row);
  void CheckMembership(std::size_t row);
  /// Rewrites the members of a group without the unknown ones, or the groups of a user, each once; nothing where the
  /// set is large, or holds what an argument cannot name, or would lose more than that.
  Mender::Command KeepKnownMembers(const std::string& group) const;
  Mender::Command KeepGroupsOnce(const std::string& user) const;

  const Mender::Command& Once(CommandOfId& commands, const std::string& id,
                              Mender::Command (Lint::*word)(const std::string&) const);

  struct FilterRow {
    std::string method;
    std::string group;
    std::string pattern;
    std::string action;
    std::string Key() const;
    std::string KeyOfDeny() const;
  };
  FilterRow ReadFilter(std::size_t row) const;
  struct PatternFault {
    std::string why;              // the pattern never matches; empty when it may
    bool stops_decisions = false; // what it matches is not known
  };
  /// Compiles each pattern once.
  const PatternFault& FaultOf(std::string_view pattern);
  Mender::Command AddFilter(const FilterRow& filter) const;
  Mender::Command DeleteFilter(const FilterRow& filter) const;
  Mender::Command ReplaceFilter(const FilterRow& filter, const FilterRow& better);
  bool AddFilterFaults(std::size_t row, const FilterRow& filter);
  void CheckFilter(std::size_t row);
  void CheckPattern(std::size_t row, const FilterRow& filter);
  void AddPatternFindings(std::size_t row, const FilterRow& filter, const PatternReading& reading);
  bool AddIdleDeny(std::size_t row, const FilterRow& filter);
  void AddProven(const LintKind& kind, std::size_t row, std::string why, const std::string& advice,
                 const Mender::Command& command);

  // What holds on all targets.
  void CheckProofs(std::size_t row, const FilterRow& filter, Perenna::Method_t method, bool is_idle,
                   PatternReading& reading);
  void ProveUse(std::size_t row, const FilterRow& filter, bool is_idle);
  void ProveQuery(std::size_t row, const FilterRow& filter);
  void ProveEnd(PatternReading& reading);

  const StoredDirectory& m_Stored;
  const Mender& m_Mender;
  FilterProofs& m_Proofs;
  Progress& m_Progress;
  std::vector<Finding> m_Findings;

  RowOfId m_Users;
  RowOfId m_Groups;
  RowsOfId m_MembershipsOfUser;
  RowsOfId m_MembershipsOfGroup;
  RowOfId m_Thumbprints;                             // the first user of each
  std::unordered_set<std::string> m_MembershipsSeen; // pairs
  CommandOfId m_KnownMembers;                        // by group: there may be very many unknown ones
  CommandOfId m_GroupsOnce;                          // by user
  std::unordered_map<std::string_view, PatternFault> m_PatternFaults;
  std::unordered_set<std::string> m_FilterKeys; // all filters, and those that a command would add
  std::unordered_set<std::string> m_FiltersSeen;
  std::unordered_set<std::string> m_Denials;                             // keys of the filters with "Deny"
  std::unordered_set<std::string_view> m_FilteredGroups;                 // that a filter names
  std::unordered_set<std::string_view> m_GrantingGroups;                 // that have an Allow which can grant something
  using MethodsOfGroup = std::unordered_map<std::string_view, unsigned>; // a bit a method
  MethodsOfGroup m_AllowedMethods;                                       // of groups, by filters that may match
  MethodsOfGroup m_AllowedToMembers;                                     // of groups with members, by all their groups
};

} // namespace AccessDirectory
