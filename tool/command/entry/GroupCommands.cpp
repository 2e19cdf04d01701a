#include "tool/command/Commands.h"

#include <iostream>
#include <memory>

#include "directory/member/Creation.h"
#include "directory/member/Deletion.h"
#include "directory/file/Database.h"
#include "directory/member/Membership.h"
#include "directory/Module.h"
#include "tool/cli/option/LockoutOptions.h"
#include "tool/cli/option/Validators.h"
#include "tool/command/entry/Listing.h"
#include "tool/DirectoryNames.h"
#include "tool/terminal/Confirmation.h"
#include "tool/terminal/Table.h"

namespace Tool {

namespace {

namespace Keys = LocalAccessManager::Strings;

struct GroupOptions {
  std::string id;
  std::string name;
  std::vector<std::string> ids;
  std::vector<std::string> users;
  PageOptions page;
  ListOptions list;
  Selection selection;
  LockoutOptions lockout;
  bool none = false;
  bool with_filters = false;
};

using Options = std::shared_ptr<GroupOptions>;

ExitStatus AddGroup(const Context& context, const GroupOptions& options) {
  const std::string name = options.name.empty() ? options.id : options.name;
  const auto writer = context.Writer();
  if (writer->ModuleMayWrite()) {
    Module module(context.DatabaseFile());
    Perenna::PListDict request;
    request.SetValue(Keys::group_id, options.id);
    request.SetValue(Keys::group_name, name);
    const auto created =
        module.Apply([&request](LocalAccessManager::UserManager& manager) { return manager.CreateGroup(request); });
    if (created == Tarn::RESULT_FILEEXISTS) {
      throw Failure(Failure::Kind::Refused, "the group " + Quoted(options.id) + " exists already");
    }
  } else {
    writer->Write([&](Database& changed) { CreateGroup(changed, options.id, name); });
  }
  Database database(context.DatabaseFile(), Database::Access::Read);
  const auto waiting = database.Number("SELECT count(*) FROM filters WHERE group_id = ?", {options.id});
  context.Report("Added group " + Quoted(options.id) + "." +
                     (waiting == 0 ? std::string()
                                   : " Note: " + Count(static_cast<std::size_t>(waiting), "filter") +
                                         " of an earlier group of this id now apply to it."),
                 {{"added", {{"group_id", JsonText(options.id)}}}, {"filters", waiting}});
  return ExitStatus::Done;
}

/// What a deletion takes away that a slip would be sorry for: more than one thing.
std::string DeletionText(Database& database, const GroupOptions& options) {
  long long memberships = 0;
  long long filters = 0;
  const std::vector<std::string> ids = Distinct(options.ids);
  for (const std::string& id : ids) {
    memberships += database.Number("SELECT count(*) FROM groupusers WHERE group_id = ?", {id});
    filters += options.with_filters ? database.Number("SELECT count(*) FROM filters WHERE group_id = ?", {id}) : 0;
  }
  if (ids.size() <= 1 && filters == 0) { // its memberships are part of a group
    return {};
  }
  return "Delete " + Count(ids.size(), "group") + ", " + Count(static_cast<std::size_t>(memberships), "membership") +
         " and " + Count(static_cast<std::size_t>(filters), "filter") + "?";
}

ExitStatus DeleteGroups(const Context& context, const GroupOptions& options) {
  {
    Database stored(context.DatabaseFile(), Database::Access::Read);
    ConfirmRemoval(context, DeletionText(stored, options));
  }
  Json deleted;
  std::string sentences;
  std::size_t filters = 0;
  Json warnings = options.lockout.Apply(context, [&](Database& database) {
    deleted = Json::array();
    sentences.clear();
    filters = 0;
    AccessDirectory::DeleteGroups(database, options.ids);
    for (const std::string& id : Distinct(options.ids)) {
      if (options.with_filters) {
        filters += DeleteFiltersOf(database, id);
      }
      const auto left = database.Number("SELECT count(*) FROM filters WHERE group_id = ?", {id});
      deleted.push_back({{"group_id", JsonText(id)}, {"filters_left", left}});
      sentences += (sentences.empty() ? "" : "\n") + ("Deleted group " + Quoted(id) + ".");
      if (left > 0) {
        sentences += " Its " + Count(static_cast<std::size_t>(left), "filter") +
                     (left == 1 ? " stays and applies" : " stay and apply") + " again to a later group of this id.";
      }
    }
  });
  if (options.with_filters) {
    sentences += "\nDeleted " + Count(filters, "filter") + ".";
  }
  context.Report(sentences,
                 {{"deleted", std::move(deleted)}, {"filters_deleted", filters}, {"warnings", std::move(warnings)}});
  return ExitStatus::Done;
}

ExitStatus ListGroups(const Context& context, const GroupOptions& options) {
  const auto text = [](const MemberListing& listing, std::size_t row, std::size_t column) {
    return std::string(listing.rows.At(row, column));
  };
  const auto json = [text](const MemberListing& listing, std::size_t row) -> Json {
    return {{"group_id", JsonText(text(listing, row, GroupColumn::Id))},
            {"group_name", JsonText(text(listing, row, GroupColumn::Name))},
            {"users", JsonTexts(listing.members[row])}};
  };
  const auto cells = [text](const MemberListing& listing, std::size_t row) -> std::vector<Cell> {
    return {Shown(text(listing, row, GroupColumn::Id)), Shown(text(listing, row, GroupColumn::Name)),
            Joined(listing.members[row])};
  };
  return PrintMembers(context, options.list,
                      {Groups, options.page, options.selection, {"GROUP", "NAME", "USERS"}, json, cells});
}

ExitStatus ShowGroup(const Context& context, const GroupOptions& options) {
  Database database(context.DatabaseFile(), Database::Access::Read);
  const Snapshot snapshot(database);
  const auto names = database.Texts("SELECT group_name FROM groups WHERE group_id = ?", {options.id});
  if (names.empty()) {
    throw Failure(Failure::Kind::Refused, "there is no group " + Quoted(options.id));
  }
  const auto users = database.Texts("SELECT user_id FROM groupusers WHERE group_id = ? ORDER BY user_id", {options.id});
  Json filters = Json::array();
  Table table({"ACTION", "METHOD", "PATTERN"});
  Statement(database, "SELECT method, CAST(filter AS TEXT) AS filter, action FROM filters WHERE group_id = ? "
                      "ORDER BY rowid")
      .ForEach({options.id}, [&](const Perenna::PListDict& row) {
        filters.push_back({{"method", JsonText(Field(row, Keys::method))},
                           {"filter", JsonText(Field(row, Keys::filter))},
                           {"action", JsonText(Field(row, Keys::action))}});
        table.Add({Shown(Field(row, Keys::action)), Shown(Field(row, Keys::method)),
                   Shown(Field(row, Keys::filter), Backslash::Kept)});
      });
  if (context.WantsJson()) {
    PrintJson({{"group_id", JsonText(options.id)},
               {"group_name", JsonText(names.front())},
               {"users", JsonTexts(users)},
               {"filters", std::move(filters)}});
    return ExitStatus::Done;
  }
  std::cout << "Group  " << Shown(options.id) << '\n'
            << "Name   " << Shown(names.front()) << '\n'
            << "Users  " << Joined(users) << '\n';
  if (!table.Empty()) {
    std::cout << '\n';
    table.Print(std::cout);
  }
  return ExitStatus::Done;
}

ExitStatus RenameGroup(const Context& context, const GroupOptions& options) {
  context.Writer()->Write([&options](Database& database) {
    if (database.Run("UPDATE groups SET group_name = ? WHERE group_id = ?", {options.name, options.id}) == 0) {
      throw Failure(Failure::Kind::Refused, "there is no group " + Quoted(options.id));
    }
  });
  context.Report("Group " + Quoted(options.id) + " is now named " + Quoted(options.name) + ".",
                 {{"changed", {{"group_id", JsonText(options.id)}, {"group_name", JsonText(options.name)}}}});
  return ExitStatus::Done;
}

ExitStatus SetMembers(const Context& context, const GroupOptions& options) {
  RequireSet(options.users, options.none, "USER");
  Json warnings = options.lockout.Apply(
      context, [&](Database& database) { ReplaceGroupUsers(database, options.id, options.users); });
  const std::vector<std::string> users = Distinct(options.users);
  context.Report("Group " + Quoted(options.id) + " now has the members: " + Joined(users) + ".",
                 {{"group_id", JsonText(options.id)}, {"users", JsonTexts(users)}, {"warnings", std::move(warnings)}});
  return ExitStatus::Done;
}

} // namespace

void AddGroupCommands(CLI::App& app, Context& context) {
  CLI::App& group = AddCommandGroup(app, "group", "Add, delete and list groups and set their members");
  const auto make = [&](const std::string& name, const std::string& description, const std::string& example,
                        ExitStatus (*run)(const Context&, const GroupOptions&)) -> std::pair<CLI::App&, Options> {
    CLI::App& command = AddCommand(group, name, description, example);
    auto options = std::make_shared<GroupOptions>();
    context.OnRun(command, [&context, options, run] { return run(context, *options); });
    return {command, options};
  };

  const auto [add, add_options] =
      make("add", "Add a group", "perenna-access group add editors \"People who edit\"", AddGroup);
  add.add_option("GROUP", add_options->id, "The new group's id: letters, digits, \"_\" and \"-\"")
      ->required()
      ->type_name("NEW")
      ->check(GroupId());
  add.add_option("NAME", add_options->name, "Its name for people (default: the id)");

  const auto [remove, remove_options] = make(
      "delete",
      "Delete groups with their memberships\nAll of them or, when one does not exist, none. Their filters stay, and "
      "apply again to a later group of the same id.",
      "perenna-access group delete editors", DeleteGroups);
  remove.add_option("GROUP", remove_options->ids, "The ids of the groups")->required();
  remove.add_flag("--with-filters", remove_options->with_filters, "Delete their filters too");
  remove_options->lockout.AddTo(remove);

  const auto [rename, rename_options] =
      make("rename", "Change a group's name for people\nIts id, which filters and memberships hold, stays.",
           "perenna-access group rename editors \"Everybody who edits\"", RenameGroup);
  rename.add_option("GROUP", rename_options->id, "The group's id")->required();
  rename.add_option("NAME", rename_options->name, "Its new name")->required()->check(NotEmpty());

  const auto [list, list_options] =
      make("list", "List groups with their members", "perenna-access group list", ListGroups);
  list.add_option("--search", list_options->selection.search,
                  "Only groups whose id or name holds this, in any letter case")
      ->type_name("TEXT");
  AddPageOptions(list, list_options->page);
  AddListOptions(list, list_options->list);

  const auto [show, show_options] =
      make("show", "Show one group with its members and filters", "perenna-access group show editors", ShowGroup);
  show.add_option("GROUP", show_options->id, "The group's id")->required();
  AddGroupAccessCommand(group, context);

  const auto [members, members_options] = make("set-members", "Replace the members of a group",
                                               "perenna-access group set-members editors alice bob", SetMembers);
  members.add_option("GROUP", members_options->id, "The group's id")->required();
  members.add_option("USER", members_options->users, "The ids of the users");
  members.add_flag("--none", members_options->none, "Leave the group without members");
  members_options->lockout.AddTo(members);
  AddGroupMemberCommands(group, context);
}

} // namespace Tool
