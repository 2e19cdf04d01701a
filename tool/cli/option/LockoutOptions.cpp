#include "tool/cli/option/LockoutOptions.h"

#include "directory/member/Administrators.h"
#include "tool/cli/option/Validators.h"

namespace Tool {

void LockoutOptions::AddTo(CLI::App& command) {
  command
      .add_option("--administrators", administrators,
                  "The group whose members administer (default: \"Administrators\" of the configuration, else "
                  "administrators)")
      ->type_name("GROUP")
      ->check(GroupId());
  command.add_flag("--force", force, "Do it even if nobody is left who may administer, or no user at all");
}

Json LockoutOptions::Apply(const Context& context, const std::function<void(Database&)>& change) const {
  const std::string group = administrators.empty() ? context.Administrators() : administrators;
  std::string left;
  context.Writer()->Write([&](Database& database) {
    const auto users = [&database] { return database.Number("SELECT count(*) FROM users"); };
    const AdministratorsGuard guard(database, group);
    const bool had_users = users() > 0;
    change(database);
    left.clear();
    if (had_users && users() == 0) {
      left = "no user is left";
    } else if (guard.LostAll()) {
      left = "no member of the group " + Quoted(group) + " who can log in is left: nobody may administer";
    }
    if (!left.empty() && !force) {
      throw Failure(Failure::Kind::Refused, "after this, " + left + "; --force does it all the same");
    }
  });
  Json warnings = Json::array();
  if (!left.empty()) {
    warnings.push_back(left);
    if (!context.WantsJson()) {
      Warn(left);
    }
  }
  return warnings;
}

} // namespace Tool
