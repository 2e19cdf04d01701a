#pragma once

#include "tool/cli/Context.h"

namespace Tool {

// One function a family of subcommands; each registers its subcommands with their help. The order here is the order in
// the help.

void AddInitCommand(CLI::App& app, Context& context);
void AddUserCommands(CLI::App& app, Context& context);
void AddGroupCommands(CLI::App& app, Context& context);
void AddFilterCommands(CLI::App& app, Context& context);
void AddCheckCommands(CLI::App& app, Context& context);
void AddWhoCommand(CLI::App& app, Context& context);
void AddReplayCommands(CLI::App& app, Context& context);
void AddLintCommand(CLI::App& app, Context& context);
void AddDiffCommand(CLI::App& app, Context& context);
void AddProveCommand(CLI::App& app, Context& context);
void AddMatrixCommand(CLI::App& app, Context& context);
void AddTuneCommand(CLI::App& app, Context& context);
void AddServeCommand(CLI::App& app, Context& context);
void AddProxyCheckCommand(CLI::App& app, Context& context);
void AddSyncCommands(CLI::App& app, Context& context);
void AddExportCommand(CLI::App& app, Context& context);
void AddImportCommand(CLI::App& app, Context& context);
void AddBackupCommands(CLI::App& app, Context& context);
void AddAuditCommands(CLI::App& app, Context& context);
void AddCompletionCommands(CLI::App& app, Context& context);
void AddHelpCommand(CLI::App& app, Context& context);
void AddManualCommand(CLI::App& app, Context& context);

// Of the families "user" and "group".
void AddUserAddCommand(CLI::App& group, Context& context);
void AddUserAccessCommand(CLI::App& group, Context& context);
void AddUserMemberCommands(CLI::App& group, Context& context);
void AddCredentialCommands(CLI::App& group, Context& context);
void AddGroupMemberCommands(CLI::App& group, Context& context);
void AddGroupAccessCommand(CLI::App& group, Context& context);

} // namespace Tool
