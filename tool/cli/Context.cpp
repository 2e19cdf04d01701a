#include "tool/cli/Context.h"

#include <cstdlib>
#include <iostream>

#include "directory/replica/ReplicaRow.h"
#include "sync/writer/StoreWriter.h"
#include "tool/cli/option/Validators.h"
#include "tool/terminal/Table.h"

namespace Tool {

namespace {

constexpr const char* DatabaseVariable = "PERENNA_ACCESS_DATABASE";

} // namespace

void Context::AddGlobalOptions(CLI::App& app) {
  CLI::Option* const database = app.add_option("-d,--database", m_Database,
                                               std::string("The access database, else the one in ") + DatabaseVariable)
                                    ->type_name("FILE")
                                    ->check(NotEmpty());
  app.add_option("-c,--config", m_Config, "The host's JSON configuration, which names the database")
      ->type_name("FILE")
      ->check(NotEmpty())
      ->excludes(database);
  app.add_option("--audit", m_Audit, "Record changes, as JSON lines at the end of this file")
      ->type_name("FILE")
      ->check(NotEmpty());
  app.add_flag("--json", m_Json, "Print JSON for programs instead of text for people");
  app.add_flag("-y,--yes", m_Yes, "Answer questions with yes, where something would be asked at a terminal");
  app.add_flag("--no-wait", m_NoWait, "On a replica: do not wait until this machine's file has the change, too");
  app.add_flag("--verbose", m_Verbose, "Print the library's log lines to standard error");
  app.add_option("--color", m_Color, "Colours: always, never, or auto for a terminal that shows them")
      ->type_name("WHEN")
      ->check(CLI::IsMember(std::vector<std::string>{"auto", "always", "never"}))
      ->capture_default_str();
  app.add_flag("--wide", m_Wide, "Print tables whole, not cut to the width of the terminal");
}

std::string Context::DatabaseFile() const {
  if (!m_Database.empty()) {
    return m_Database;
  }
  if (!m_Config.empty()) {
    return Host::ReadDirectoryPart(m_Config).database_filename;
  }
  const char* const named = std::getenv(DatabaseVariable); // NOLINT(concurrency-mt-unsafe): nothing changes it
  if (named == nullptr || *named == '\0') {
    throw Failure(Failure::Kind::Input,
                  std::string("which database? Give --database FILE or --config FILE, or set ") + DatabaseVariable);
  }
  return named;
}

Host::DirectoryPart Context::Directory() const {
  if (!m_Config.empty()) {
    return Host::ReadDirectoryPart(m_Config);
  }
  Host::DirectoryPart part;
  part.administrators = "administrators";
  return part;
}

std::string Context::AuditFile() const {
  return !m_Audit.empty() ? m_Audit : Directory().administration_log;
}

std::shared_ptr<AccessDirectory::ChangeWriter> Context::Writer() const {
  const std::string file = DatabaseFile();
  if (!ReadReplicaRow(file)) {
    return std::make_shared<AccessDirectory::FileWriter>(file);
  }
  if (m_Config.empty()) {
    throw Failure(Failure::Kind::Input, "the database " + Quoted(file) +
                                            " is a replica: changes go to its store; give --config FILE, whose section "
                                            "\"Sync\" names it");
  }
  return std::make_shared<Sync::StoreWriter>(Sync::ReadSettings(m_Config), file,
                                             m_NoWait ? Sync::Waiting::None : Sync::Waiting::ForFile);
}

std::string Context::Administrators() const {
  return Directory().administrators;
}

std::vector<std::string> Context::DatabaseArguments() const {
  if (!m_Database.empty()) {
    return {"--database=" + m_Database};
  }
  return m_Config.empty() ? std::vector<std::string>() : std::vector<std::string>{"--config=" + m_Config};
}

void Context::OnRun(CLI::App& command, Action action) {
  command.callback([this, action = std::move(action)] { m_Action = action; });
}

ExitStatus Context::Run() const {
  SetTableStyle({m_Color == "always"  ? ColourUse::Always
                 : m_Color == "never" ? ColourUse::Never
                                      : ColourUse::Auto,
                 m_Wide});
  return m_Action();
}

void Context::Report(const std::string& text, const Json& json) const {
  if (m_Json) {
    PrintJson(json);
  } else {
    std::cout << text << '\n';
  }
}

void PrintJson(const Json& json) {
  std::cout << json.dump(2, ' ', true) << '\n';
}

CLI::App& AddCommand(CLI::App& parent, const std::string& name, const std::string& description,
                     const std::string& example) {
  CLI::App* const command = parent.add_subcommand(name, description);
  command->footer("Example:\n  " + example);
  return *command;
}

CLI::App& AddCommandGroup(CLI::App& parent, const std::string& name, const std::string& description) {
  CLI::App* const group = parent.add_subcommand(name, description);
  group->require_subcommand(1);
  return *group;
}

void AddPageOptions(CLI::App& command, PageOptions& page) {
  command.add_option("--skip", page.skip, "Leave out this many entries at the start")->check(WholeNumber());
  command.add_option("--limit", page.limit, "Show at most this many entries")->check(WholeNumber());
}

} // namespace Tool
