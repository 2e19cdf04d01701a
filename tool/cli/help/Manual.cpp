#include "tool/cli/help/Manual.h"

#include <algorithm>
#include <cctype>
#include <sstream>

#include "tool/cli/CommandTree.h"
#include "tool/cli/help/Roff.h"

namespace Tool {

namespace {

std::string OptionEntry(const CLI::Option& option) {
  std::string term;
  for (const std::string& name : OptionNames(option)) {
    term += (term.empty() ? "" : ", ") + Bold(name);
  }
  if (TakesValue(option)) {
    term += " \\fI" + Escaped(ValueName(option)) + "\\fR";
  }
  return Entry(term, FullDescription(option));
}

/// A footer of the help: headings, each with indented lines below it, which are examples or "TERM  description".
std::string FooterSections(const std::string& footer, const std::string& heading_macro) {
  std::string page;
  bool example = false;
  std::istringstream lines(footer);
  for (std::string line; std::getline(lines, line);) {
    if (line.empty()) {
      page += example ? ".EE\n" : "";
      example = false;
      continue;
    }
    if (line.front() != ' ') {
      if (line.back() != ':') {
        page += ".PP\n" + Escaped(line) + '\n';
        continue;
      }
      std::string heading = line.substr(0, line.size() - 1);
      example = heading.rfind("Example", 0) == 0;
      if (!example) {
        std::transform(heading.begin(), heading.end(), heading.begin(),
                       [](unsigned char byte) { return static_cast<char>(std::toupper(byte)); });
      }
      page += example ? ".PP\n" + heading + ":\n.PP\n.EX\n" : heading_macro + " \"" + Escaped(heading) + "\"\n";
      continue;
    }
    const std::size_t begin = line.find_first_not_of(' ');
    const std::size_t gap = line.find("  ", begin);
    if (example || gap == std::string::npos) {
      page += Escaped(line) + '\n';
    } else {
      page += Entry(Bold(line.substr(begin, gap - begin)), line.substr(line.find_first_not_of(' ', gap)));
    }
  }
  return page + (example ? ".EE\n" : "");
}

std::string CommandSections(const CLI::App& command) {
  std::string page;
  for (const CLI::App* const subcommand : Subcommands(command)) {
    page += ".SS \"" + Escaped(Usage(*subcommand)) + "\"\n" + Escaped(Sentence(Summary(*subcommand))) + '\n';
    page += Details(*subcommand).empty() ? "" : Escaped(Details(*subcommand)) + '\n';
    for (const CLI::Option* const argument : Arguments(*subcommand)) {
      page += Entry("\\fI" + Escaped(argument->get_name(true)) + "\\fR", FullDescription(*argument));
    }
    for (const CLI::Option* const option : Options(*subcommand)) {
      page += option == subcommand->get_help_ptr() ? "" : OptionEntry(*option);
    }
    page += FooterSections(subcommand->get_footer(), ".SS");
    page += CommandSections(*subcommand);
  }
  return page;
}

} // namespace

std::string Manual(const CLI::App& root) {
  std::string name = Summary(root);
  name.front() = static_cast<char>(std::tolower(static_cast<unsigned char>(name.front())));
  std::string page = PageBeginning(root.get_name(), 1, name, root.version());
  page += ".SH SYNOPSIS\n" + Bold(root.get_name()) + " [\\fIOPTIONS\\fR] \\fICOMMAND\\fR\n";
  page += ".SH DESCRIPTION\n" + Escaped(Details(root)) + '\n';
  page += ".SH OPTIONS\nEvery command takes these.\n";
  for (const CLI::Option* const option : Options(root)) {
    page += OptionEntry(*option);
  }
  page += ".SH COMMANDS\n" + CommandSections(root);
  return page + FooterSections(root.get_footer(), ".SH");
}

} // namespace Tool
