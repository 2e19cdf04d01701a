#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "host/Configuration.h"
#include "tool/cli/ErrorReport.h"
#include "tool/ExitStatus.h"
#include "directory/change/ChangeWriter.h"
#include "directory/text/Text.h"
#include "tool/DirectoryNames.h"

namespace Tool {

/// What all subcommands share: the global options and the action that the command line asks for.
class Context {
public:
  /// Gives `app` the global options.
  void AddGlobalOptions(CLI::App& app);

  /// The database file that --database, --config or PERENNA_ACCESS_DATABASE names. Throws `Failure`.
  std::string DatabaseFile() const;

  /// The file that --config names; empty: none.
  const std::string& ConfigurationFile() const noexcept { return m_Config; }

  /// The arguments that lead another run of the tool to the same database; none where the environment does.
  std::vector<std::string> DatabaseArguments() const;

  /// Where changes of that database go: into the file, or, when it is a replica, into the store that the section "Sync"
  /// of --config names. Throws `Failure`.
  std::shared_ptr<AccessDirectory::ChangeWriter> Writer() const;

  /// The group whose members administer the host: "Administrators" of the configuration's section "Host", else
  /// "administrators". Throws `Failure`.
  std::string Administrators() const;

  /// What the configuration says about the directory, else what holds without one; the database's name is left empty.
  /// Throws `Failure`.
  Host::DirectoryPart Directory() const;

  /// Where changes are recorded: what --audit names, else "Host.Log.Administration" of the configuration; empty:
  /// nowhere. Throws `Failure`.
  std::string AuditFile() const;

  /// Whether questions are answered with yes beforehand.
  bool AssumesYes() const noexcept { return m_Yes; }

  bool WantsJson() const noexcept { return m_Json; }
  ErrorForm Errors() const noexcept { return m_Json ? ErrorForm::Json : ErrorForm::Text; }
  bool IsVerbose() const noexcept { return m_Verbose; }

  using Action = std::function<ExitStatus()>;
  /// Makes `action` what runs when the command line names `command`.
  void OnRun(CLI::App& command, Action action);
  ExitStatus Run() const;

  /// Reports what was done: `text` as a sentence, or `json`.
  void Report(const std::string& text, const Json& json) const;

private:
  std::string m_Database;
  std::string m_Config;
  std::string m_Audit;
  bool m_NoWait = false;
  bool m_Json = false;
  bool m_Verbose = false;
  bool m_Yes = false;
  std::string m_Color = "auto";
  bool m_Wide = false;
  Action m_Action;
};

/// Writes `json` to standard output, indented, ASCII only, with a line end.
void PrintJson(const Json& json);

/// Adds a subcommand with its description, a line and more sentences in a second, and an example of one or more lines.
CLI::App& AddCommand(CLI::App& parent, const std::string& name, const std::string& description,
                     const std::string& example);

/// Adds a group of subcommands, such as "user", one of which must be given.
CLI::App& AddCommandGroup(CLI::App& parent, const std::string& name, const std::string& description);

/// Which rows of a listing to show.
struct PageOptions {
  int skip = 0;
  int limit = 0x7fffffff; ///< unbounded
};
void AddPageOptions(CLI::App& command, PageOptions& page);

} // namespace Tool
