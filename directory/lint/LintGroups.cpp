// Groups and memberships.

#include <set>

#include "directory/lint/Lint.h"
#include "directory/lint/LintKinds.h"
#include "directory/text/Vocabulary.h"

namespace AccessDirectory {

namespace {

// A longer set is no command that anybody could check before pasting it.
constexpr std::size_t MaximumIds = 20;

} // namespace

void Lint::CheckGroup(std::size_t row) {
  if (AddUnreachable(Groups, row, 1)) {
    return;
  }
  const std::string id = Text(Groups, row, GroupColumn::Id);
  if (!IsGroupId(id)) {
    Add(LintKinds::GroupId, Groups, row,
        "the id is not made of letters, digits, \"_\" and \"-\" alone: once deleted, the group cannot be created again",
        "add a group with another id, give it the members and filters of this one, and delete this one");
  }
  const bool has_members = m_MembershipsOfGroup.count(id) > 0;
  const bool has_filters = m_FilteredGroups.count(id) > 0;
  if (!has_members) {
    const Mender::Command deleted = m_Mender.Run({"group", "delete"}, {id});
    Add(LintKinds::GroupWithoutMembers, Groups, row, "the group has no members: it gives rights to nobody",
        !has_filters && deleted ? *deleted : "give it members, or delete its filters and then the group");
  }
  if (!has_filters) {
    Add(LintKinds::GroupWithoutFilters, Groups, row, "the group has no filters: it gives no rights to its members",
        has_members ? "give it filters, or delete it" : "delete it, as it has no members either, or give it both");
  }
}

Mender::Command Lint::KeepKnownMembers(const std::string& group) const {
  std::set<std::string> known;
  for (const std::size_t row : m_MembershipsOfGroup.at(group)) {
    const std::string user = Text(Memberships, row, MembershipColumn::User);
    if (In(Memberships).IsBlob(row, MembershipColumn::User) || known.size() > MaximumIds) {
      return std::nullopt;
    }
    if (m_Users.count(user) > 0) {
      known.insert(user);
    }
  }
  std::vector<std::string> words = {group};
  words.insert(words.end(), known.begin(), known.end());
  return m_Mender.Run({"group", "set-members"}, words);
}

Mender::Command Lint::KeepGroupsOnce(const std::string& user) const {
  std::set<std::string> groups;
  for (const std::size_t row : m_MembershipsOfUser.at(user)) {
    const std::string group = Text(Memberships, row, MembershipColumn::Group);
    if (In(Memberships).IsBlob(row, MembershipColumn::Group) || m_Groups.count(group) == 0 ||
        groups.size() > MaximumIds) {
      return std::nullopt;
    }
    groups.insert(group);
  }
  std::vector<std::string> words = {user};
  words.insert(words.end(), groups.begin(), groups.end());
  return m_Mender.Run({"user", "set-groups"}, words);
}

/// Words the command for an id when it is first asked for.
const Mender::Command& Lint::Once(CommandOfId& commands, const std::string& id,
                                  Mender::Command (Lint::*word)(const std::string&) const) {
  const auto [entry, is_new] = commands.emplace(id, std::nullopt);
  if (is_new) {
    entry->second = (this->*word)(id);
  }
  return entry->second;
}

void Lint::CheckMembership(std::size_t row) {
  if (AddUnreachable(Memberships, row, MembershipColumn::Count)) {
    return;
  }
  const std::string group = Text(Memberships, row, MembershipColumn::Group);
  const std::string user = Text(Memberships, row, MembershipColumn::User);
  const bool user_exists = m_Users.count(user) > 0;
  const bool group_exists = m_Groups.count(group) > 0;
  const auto mend = [this, row](const Mender::Command& command) {
    return command ? *command : DeleteRow(Memberships, row);
  };
  Mender::Command gone; // deleting a group deletes its memberships
  if (!group_exists && IsGroupId(group)) {
    gone = Mender::Then(m_Mender.Run({"group", "add"}, {group}), m_Mender.Run({"group", "delete"}, {group}));
  }
  if (!group_exists) {
    Add(LintKinds::MembershipGroup, Memberships, row,
        std::string("there is no such group") + (m_FilteredGroups.count(group) > 0
                                                     ? ", and yet its filters apply to the user"
                                                     : ": the user gets the rights of the next group of this id"),
        mend(gone));
  }
  if (!user_exists) {
    Add(LintKinds::MembershipUser, Memberships, row,
        "there is no such user: the next one of this id is in the group from the start",
        mend(group_exists ? Once(m_KnownMembers, group, &Lint::KeepKnownMembers) : gone));
  }
  const bool is_new = m_MembershipsSeen.insert(group + '\0' + user).second;
  if (!is_new && user_exists && group_exists) {
    Add(LintKinds::MembershipRepeated, Memberships, row,
        "the same membership stands in an earlier row: listings name the user twice",
        mend(Once(m_GroupsOnce, user, &Lint::KeepGroupsOnce)));
  }
}

} // namespace AccessDirectory
