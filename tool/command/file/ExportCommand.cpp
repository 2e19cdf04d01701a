#include "tool/command/Commands.h"

#include <memory>

#include "directory/Directory.h"
#include "directory/file/FileNames.h"
#include "directory/file/NewFile.h"
#include "directory/transfer/DirectoryText.h"
#include "tool/DirectoryNames.h"
#include "tool/terminal/Output.h"

namespace Tool {

namespace {

struct ExportOptions {
  std::string file = "-";
  bool force = false;
  bool no_credentials = false;
  bool sorted = false;
};

SectionCounts WriteTo(Output& out, Database& database, const ExportOptions& options) {
  const SectionCounts counts = WriteDirectory(
      database, options.no_credentials ? StoredCredentials::LeftOut : StoredCredentials::Written,
      [&out](const std::string& text) { out.Write(text); }, options.sorted ? RowOrder::Sorted : RowOrder::Stored);
  out.Finish();
  return counts;
}

ExitStatus Export(const Context& context, const ExportOptions& options) {
  Database database(context.DatabaseFile(), Database::Access::Read);
  if (options.file == "-") {
    Output out;
    WriteTo(out, database, options);
    return ExitStatus::Done;
  }
  RequireApart(options.file, database.File());
  const NewFile file(options.file, options.force ? NewFile::Existing::Replace : NewFile::Existing::Keep,
                     "--force replaces it");
  SectionCounts counts{};
  {
    Output out(file.WorkName(), options.file);
    counts = WriteTo(out, database, options);
  }
  file.Publish();
  context.Report("Exported " + CountsText(counts) + " to " + Quoted(options.file) + '.',
                 {{"exported", CountsJson(counts)}, {"file", JsonText(options.file)}});
  return ExitStatus::Done;
}

} // namespace

void AddExportCommand(CLI::App& app, Context& context) {
  CLI::App& command = AddCommand(app, "export",
                                 "Write the whole directory as JSON, for \"import\"\n"
                                 "It holds the stored credentials, so a file is made for its owner alone. An entry is "
                                 "a line, in the order of the listings; all are as of one moment.",
                                 "perenna-access export backup.json\n"
                                 "  perenna-access export --no-credentials --sorted policy.json");
  auto options = std::make_shared<ExportOptions>();
  command.add_option("FILE", options->file, "The file to create, for its owner alone (default: standard output)");
  command.add_flag("--no-credentials", options->no_credentials,
                   "Leave the stored credentials out, for a file that is kept among others; an import then keeps those "
                   "that are stored");
  command.add_flag("--sorted", options->sorted,
                   "Write the entries in the order of their texts, so that directories and versions compare line by "
                   "line");
  command.add_flag("--force", options->force, "Replace an existing file");
  context.OnRun(command, [&context, options] { return Export(context, *options); });
}

} // namespace Tool
