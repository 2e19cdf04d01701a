#include "tool/cli/help/Manual.h"

#include <algorithm>
#include <cctype>
#include <iostream>
#include <sstream>

#include "tool/cli/CommandTree.h"
#include "tool/command/Commands.h"

namespace Tool {

namespace {

/// Text for roff: its special characters, and those that it would set as typographic ones, as they are.
std::string Escaped(const std::string& text) {
  std::string escaped;
  for (const char byte : text) {
    switch (byte) {
    case '\\':
      escaped += "\\e";
      break;
    case '-':
      escaped += "\\-";
      break;
    case '\'':
      escaped += "\\(aq";
      break;
    case '`':
      escaped += "\\(ga";
      break;
    case '^':
      escaped += "\\(ha";
      break;
    case '~':
      escaped += "\\(ti";
      break;
    case '"':
      escaped += "\\(dq";
      break;
    default:
      escaped += byte;
    }
  }
  return escaped.empty() || escaped.front() != '.' ? escaped : "\\&" + escaped; // a dot would begin a request
}

std::string Bold(const std::string& text) {
  return "\\fB" + Escaped(text) + "\\fR";
}

/// A summary or description has no full stop of its own.
std::string Sentence(const std::string& text) {
  return text + (text.back() == '?' || text.back() == '.' ? "" : ".");
}

std::string Entry(const std::string& term, const std::string& description) {
  return ".TP\n" + term + '\n' + Escaped(Sentence(description)) + '\n';
}

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
  // No hyphen and no stretched blank within an option's name; the macros set them anew from these at every paragraph.
  std::string page =
      ".nr HY 0\n.ds AD l\n.TH \"PERENNA\\-ACCESS\" 1 \"\" \"" + Escaped(root.version()) + "\" \"User Commands\"\n";
  page += ".SH NAME\n" + Escaped(root.get_name()) + " \\- " + Escaped(name) + '\n';
  page += ".SH SYNOPSIS\n" + Bold(root.get_name()) + " [\\fIOPTIONS\\fR] \\fICOMMAND\\fR\n";
  page += ".SH DESCRIPTION\n" + Escaped(Details(root)) + '\n';
  page += ".SH OPTIONS\nEvery command takes these.\n";
  for (const CLI::Option* const option : Options(root)) {
    page += OptionEntry(*option);
  }
  page += ".SH COMMANDS\n" + CommandSections(root);
  return page + FooterSections(root.get_footer(), ".SH");
}

void AddManualCommand(CLI::App& app, Context& context) {
  CLI::App& manual = AddCommand(app, "manual", "Print the manual page", "perenna-access manual | man -l -");
  context.OnRun(manual, [&app] {
    std::cout << Manual(app);
    return ExitStatus::Done;
  });
}

} // namespace Tool
