#include "directory/policy/AccessRules.h"

#include <algorithm>

#include "directory/text/Vocabulary.h"

namespace AccessDirectory {

namespace {

constexpr std::size_t ShownUsers = 3;

/// Where rows come from: from a database, where what is no text is kept as it is, or from a file, where all is text.
struct StoredSource {
  const StoredDirectory& stored;
  const Rows& In(SectionNumber section) const { return stored.at(section).texts; }
  bool IsBlob(SectionNumber section, std::size_t row, std::size_t column) const {
    return stored.at(section).IsBlob(row, column);
  }
};

struct FileSource {
  const Directory& directory;
  const Rows& In(SectionNumber section) const { return directory.at(section); }
  static bool IsBlob(SectionNumber /*section*/, std::size_t /*row*/, std::size_t /*column*/) { return false; }
};

/// An id as it is compared.
template <class Source>
std::string Id(const Source& source, SectionNumber section, std::size_t row, std::size_t column) {
  const std::string mark = source.IsBlob(section, row, column) ? std::string(1, '\0') : "";
  return mark + std::string(source.In(section).At(row, column));
}

template <class Value> void SortOnce(std::vector<Value>& values) {
  std::sort(values.begin(), values.end());
  values.erase(std::unique(values.begin(), values.end()), values.end());
}

void Append(std::vector<PatternNumber>& to, const std::vector<PatternNumber>& from) {
  to.insert(to.end(), from.begin(), from.end());
}

} // namespace

bool Rules::Allow(const Patterns& patterns, const std::string& target) const {
  const auto matches = [&](PatternNumber pattern) { return patterns.Matches(pattern, target); };
  return !in_doubt && std::none_of(denies.begin(), denies.end(), matches) &&
         std::any_of(allows.begin(), allows.end(), matches);
}

AccessRules::AccessRules(const StoredDirectory& stored, Patterns& patterns) {
  Read(StoredSource{stored}, patterns);
}

AccessRules::AccessRules(const Directory& directory, Patterns& patterns) {
  Read(FileSource{directory}, patterns);
}

template <class Source> void AccessRules::Read(const Source& source, Patterns& patterns) {
  for (std::size_t row = 0; row < source.In(SectionNumber::Users).Count(); ++row) {
    const std::string id = Id(source, SectionNumber::Users, row, UserColumn::Id);
    if (!id.empty() && id.find('\0') == std::string::npos) { // the module judges no other
      m_Users[id];
    }
  }
  for (std::size_t row = 0; row < source.In(SectionNumber::Groups).Count(); ++row) {
    m_GroupIds.insert(Id(source, SectionNumber::Groups, row, GroupColumn::Id));
  }
  for (std::size_t row = 0; row < source.In(Memberships).Count(); ++row) {
    const auto user = m_Users.find(Id(source, Memberships, row, MembershipColumn::User));
    if (user != m_Users.end()) {
      user->second.push_back(Id(source, Memberships, row, MembershipColumn::Group));
    }
  }
  for (auto& [user, groups] : m_Users) {
    SortOnce(groups);
  }
  const Rows& filters = source.In(Filters);
  for (std::size_t row = 0; row < filters.Count(); ++row) {
    Perenna::Method_t method = Perenna::METH_MAX;
    if (!Perenna::StringToMethod(Id(source, Filters, row, FilterColumn::Method), method)) {
      continue;
    }
    const PatternNumber pattern = patterns.Add(std::string(filters.At(row, FilterColumn::Pattern)));
    Rules& rules = m_Filters[Id(source, Filters, row, FilterColumn::Group)].at(method);
    // The module tries the patterns before it looks at the actions: doubt is doubt, whatever the action.
    rules.in_doubt = rules.in_doubt || patterns.IsCostly(pattern);
    const std::string_view action = filters.At(row, FilterColumn::Action);
    if (action == AccessDirectory::Allow) {
      rules.allows.push_back(pattern);
    } else if (action == Deny) {
      rules.denies.push_back(pattern);
    }
  }
}

std::vector<std::string> AccessRules::Groups() const {
  return {m_GroupIds.begin(), m_GroupIds.end()};
}

Rules AccessRules::RulesOf(const GroupSet& groups, Perenna::Method_t method) const {
  Rules rules;
  for (const std::string& group : groups) {
    const auto filters = m_Filters.find(group);
    if (filters != m_Filters.end()) {
      const Rules& of_group = filters->second.at(method);
      rules.in_doubt = rules.in_doubt || of_group.in_doubt;
      Append(rules.allows, of_group.allows);
      Append(rules.denies, of_group.denies);
    }
  }
  SortOnce(rules.allows);
  SortOnce(rules.denies);
  return rules;
}

std::vector<UserClass> ClassesOf(const AccessRules& policy) {
  std::map<AccessRules::GroupSet, std::vector<std::string>> users;
  for (const auto& [user, groups] : policy.Users()) {
    users[groups].push_back(user);
  }
  std::vector<UserClass> classes;
  classes.reserve(users.size());
  for (auto& [groups, of_class] : users) {
    classes.push_back({groups, std::move(of_class)});
  }
  return classes;
}

std::string UsersText(const std::vector<std::string>& users) {
  const std::size_t shown = users.size() <= ShownUsers + 1 ? users.size() : ShownUsers;
  std::string text;
  for (std::size_t i = 0; i < shown; ++i) {
    text += (i == 0 ? "" : i + 1 == users.size() ? " and " : ", ") + Shown(users[i]);
  }
  return text + (shown < users.size() ? " and " + std::to_string(users.size() - shown) + " more" : "");
}

std::string GroupsText(const AccessRules::GroupSet& groups) {
  std::string text;
  for (const std::string& group : groups) {
    text += (text.empty() ? "" : ", ") + Shown(group);
  }
  return groups.empty() ? "no group" : text;
}

} // namespace AccessDirectory
