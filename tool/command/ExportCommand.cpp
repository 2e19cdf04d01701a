#include "tool/command/Commands.h"

#include <memory>

#include "directory/Directory.h"
#include "directory/file/FileNames.h"
#include "directory/file/NewFile.h"
#include "tool/DirectoryNames.h"
#include "tool/terminal/Output.h"

namespace Tool {

namespace {

struct ExportOptions {
  std::string file = "-";
  bool force = false;
};

/// A row as one line of the file.
std::string Line(const Section& section, const std::vector<std::string>& texts) {
  std::string line = "{";
  for (std::size_t i = 0; i < texts.size(); ++i) {
    line += (i == 0 ? "\"" : ",\"") + section.columns[i] + "\":" + JsonText(texts[i]).dump(-1, ' ', true);
  }
  return line + '}';
}

/// Writes the whole directory, row by row, as of one moment.
SectionCounts WriteDirectory(Database& database, Output& out) {
  SectionCounts counts{};
  const Snapshot snapshot(database);
  out.Write(std::string("{\"format\":\"") + FileFormat + "\",\"version\":" + std::to_string(FileVersion));
  for (std::size_t number = 0; number < SectionCount; ++number) {
    const Section& section = Sections.at(number);
    out.Write(std::string(",\n\"") + section.name + "\":[");
    std::size_t& count = counts.at(number);
    ForEachRow(database, section, NotText::Refuse, [&](const std::vector<std::string>& texts) {
      out.Write((count == 0 ? "\n" : ",\n") + Line(section, texts));
      ++count;
    });
    out.Write(count == 0 ? "]" : "\n]");
  }
  out.Write("}\n");
  out.Finish();
  return counts;
}

ExitStatus Export(const Context& context, const ExportOptions& options) {
  Database database(context.DatabaseFile(), Database::Access::Read);
  if (options.file == "-") {
    Output out;
    WriteDirectory(database, out);
    return ExitStatus::Done;
  }
  RequireApart(options.file, database.File());
  const NewFile file(options.file, options.force ? NewFile::Existing::Replace : NewFile::Existing::Keep,
                     "--force replaces it");
  SectionCounts counts{};
  {
    Output out(file.WorkName(), options.file);
    counts = WriteDirectory(database, out);
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
                                 "perenna-access export backup.json");
  auto options = std::make_shared<ExportOptions>();
  command.add_option("FILE", options->file, "The file to create, for its owner alone (default: standard output)");
  command.add_flag("--force", options->force, "Replace an existing file");
  context.OnRun(command, [&context, options] { return Export(context, *options); });
}

} // namespace Tool
