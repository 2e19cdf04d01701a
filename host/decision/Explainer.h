#pragma once

#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "PN_HTTP.h"
#include "PN_Regex.h"
#include "host/decision/watch/DirectoryFile.h"
#include "host/decision/Reader.h"
#include "host/decision/Verdict.h"

namespace Host {

/// Says what the module does not: the groups of a user, and which filter settled a decision. Decides nothing. A
/// connection of its own that only reads; what it has read it keeps until `Forget`, so that a decision costs a few
/// comparisons and, for a user not asked for before, a lookup. One thread's own.
class Explainer {
public:
  /// Opens the file. Throws `AccessDirectory::Failure` (System).
  explicit Explainer(DirectoryFile& file);

  /// To be called when the directory has changed.
  void Forget();

  /// Fills groups, reason and decider of a judgement that has its outcome, allowed or refused, and its user. False when
  /// the database failed. `url`: the text that the module was asked about.
  bool Explain(Perenna::Method_t method, const std::string& url, Judgement& judgement);

  /// Some user that exists; empty when there is none, or the database failed.
  const std::string& SomeUser();

private:
  struct Filter {
    std::string pattern;
    std::string action;
    std::string beginning; ///< what every text that matches begins with
  };
  using Filters = std::vector<Filter>;

  struct Membership {
    std::string group_id;
    bool is_listed = false; ///< the group exists, under a valid id
  };

  const std::vector<Membership>* MembershipsOf(const std::string& user_id);
  const Filters* FiltersOf(const std::string& group_id, const char* method);
  Perenna::RegularExpression::Outcome Test(const Filter& filter, const std::string& url);

  Reader m_Reader;
  ReaderQuery m_Memberships;
  ReaderQuery m_GroupFilters;
  ReaderQuery m_AnyUser;

  std::unordered_map<std::string, std::vector<Membership>> m_Users; // whose groups are known
  std::map<std::pair<std::string, std::string>, Filters> m_Filters; // by group and method
  std::string m_SomeUser;
  // By their text; they stay when the directory changes, and go when they are too many.
  std::unordered_map<std::string, std::unique_ptr<Perenna::RegularExpression>> m_Patterns;
};

} // namespace Host
