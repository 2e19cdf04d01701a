#include "tool/command/Commands.h"

#include <memory>

#include "directory/member/Membership.h"
#include "tool/cli/option/LockoutOptions.h"
#include "tool/command/entry/Listing.h"

namespace Tool {

namespace {

/// Memberships that a command adds or removes: of one user in several groups, or of several users in one group.
struct MemberOptions {
  std::string id;
  std::vector<std::string> ids;
  LockoutOptions lockout;
};

enum class Of { User, Group };
enum class Does { Add, Remove };

ExitStatus Change(const Context& context, const MemberOptions& options, Of of, Does does) {
  const std::vector<std::string> ids = Distinct(options.ids);
  std::vector<std::string> changed;
  const Json warnings = options.lockout.Apply(context, [&](Database& database) {
    changed.clear();
    for (const std::string& id : ids) {
      const std::string& group = of == Of::User ? id : options.id;
      const std::string& user = of == Of::User ? options.id : id;
      if (does == Does::Add ? AddMembership(database, group, user) : RemoveMembership(database, group, user)) {
        changed.push_back(id);
      }
    }
  });
  const std::string who = of == Of::User ? "User " + Quoted(options.id) : Joined(changed);
  const std::string where = of == Of::User ? Joined(changed) : "group " + Quoted(options.id);
  const bool many = of == Of::Group && changed.size() > 1;
  const std::string verb =
      does == Does::Add ? (many ? " are now in " : " is now in ") : (many ? " are no longer in " : " is no longer in ");
  std::string text = changed.empty() ? "Nothing to do: " : who + verb + where + '.';
  if (changed.empty()) {
    text += does == Does::Add ? "all of them are members already." : "none of them is a member.";
  }
  context.Report(text, {{of == Of::User ? "user_id" : "group_id", JsonText(options.id)},
                        {does == Does::Add ? "added" : "removed", JsonTexts(changed)},
                        {"warnings", warnings}});
  return ExitStatus::Done;
}

void AddMemberCommand(CLI::App& group, Context& context, const std::string& name, const std::string& description,
                      const std::string& example, Of of, Does does) {
  CLI::App& command = AddCommand(group, name, description, example);
  auto options = std::make_shared<MemberOptions>();
  const bool of_user = of == Of::User;
  command.add_option(of_user ? "USER" : "GROUP", options->id, of_user ? "The user's id" : "The group's id")->required();
  command
      .add_option(of_user ? "GROUP" : "USER", options->ids, of_user ? "The ids of the groups" : "The ids of the users")
      ->required();
  options->lockout.AddTo(command);
  context.OnRun(command, [&context, options, of, does] { return Change(context, *options, of, does); });
}

} // namespace

void AddUserMemberCommands(CLI::App& group, Context& context) {
  AddMemberCommand(group, context, "add-group", "Put a user into further groups",
                   "perenna-access user add-group alice editors", Of::User, Does::Add);
  AddMemberCommand(group, context, "remove-group", "Take a user out of groups",
                   "perenna-access user remove-group alice editors", Of::User, Does::Remove);
}

void AddGroupMemberCommands(CLI::App& group, Context& context) {
  AddMemberCommand(group, context, "add-member", "Put further users into a group",
                   "perenna-access group add-member editors alice bob", Of::Group, Does::Add);
  AddMemberCommand(group, context, "remove-member", "Take users out of a group",
                   "perenna-access group remove-member editors bob", Of::Group, Does::Remove);
}

} // namespace Tool
