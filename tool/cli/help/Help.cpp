#include "tool/cli/help/Help.h"

#include <algorithm>
#include <iostream>
#include <memory>
#include <sstream>

#include "tool/cli/CommandTree.h"
#include "tool/cli/Suggestion.h"
#include "tool/command/Commands.h"

namespace Tool {

namespace {

constexpr std::size_t Width = 100; // columns of a line
constexpr std::size_t Column = 28; // where descriptions begin

/// The words of `text` in lines of at most `Width` columns; all but the first are indented. A line break stays.
std::string Wrapped(const std::string& text, std::size_t indentation = 0) {
  std::string wrapped;
  std::istringstream paragraphs(text);
  for (std::string paragraph; std::getline(paragraphs, paragraph);) {
    std::size_t column = indentation;
    std::istringstream words(paragraph);
    for (std::string word; words >> word; column += word.size()) {
      if (column > indentation && column + 1 + word.size() > Width) {
        wrapped += '\n' + std::string(indentation, ' ');
        column = indentation;
      } else if (column > indentation) {
        wrapped += ' ';
        ++column;
      }
      wrapped += word;
    }
    wrapped += '\n';
  }
  return wrapped;
}

std::string Entry(const std::string& term, const std::string& description) {
  std::string entry = "  " + term;
  entry += entry.size() + 2 > Column ? '\n' + std::string(Column, ' ') : std::string(Column - entry.size(), ' ');
  return entry + Wrapped(description, Column);
}

std::string OptionTerm(const CLI::Option& option) {
  return CLI::detail::join(OptionNames(option), ", ") + (TakesValue(option) ? " " + ValueName(option) : "");
}

std::string OptionList(const CLI::App& command) {
  std::string list;
  for (const CLI::Option* const option : Options(command)) {
    list += Entry(OptionTerm(*option), FullDescription(*option));
  }
  return list;
}

/// The line that names the options of the whole program.
std::string GlobalOptionsLine(const CLI::App& command) {
  std::string names;
  for (const CLI::Option* const option : GlobalOptions(command)) {
    names += (names.empty() ? "Also: " : ", ") + OptionNames(*option).back() +
             (TakesValue(*option) ? " " + ValueName(*option) : "");
  }
  return names.empty() ? names : Wrapped(names + "; see \"perenna-access --help\"");
}

/// How to read about the subcommands: "perenna-access help user COMMAND".
std::string HowToAsk(const CLI::App& command) {
  std::string path = CommandPath(command);
  path.insert(std::min(path.find(' '), path.size()), " help");
  return '"' + path + " COMMAND\" explains one of them.\n";
}

} // namespace

std::string SubcommandList(const CLI::App& command) {
  std::string list;
  for (const CLI::App* const subcommand : Subcommands(command)) {
    list += Entry(subcommand->get_name(), Summary(*subcommand));
  }
  return list;
}

std::string HelpFormatter::make_help(const CLI::App* command, std::string /*name*/, CLI::AppFormatMode /*mode*/) const {
  std::string arguments;
  for (const CLI::Option* const argument : Arguments(*command)) {
    arguments += Entry(argument->get_name(true), FullDescription(*argument));
  }
  const std::string subcommands = SubcommandList(*command);
  std::string help = Wrapped(command->get_description()) + "\nUsage: " + Usage(*command) + '\n';
  help += subcommands.empty() ? "" : "\nCommands:\n" + subcommands + HowToAsk(*command);
  help += arguments.empty() ? "" : "\nArguments:\n" + arguments;
  help += "\nOptions:\n" + OptionList(*command) + GlobalOptionsLine(*command);
  const std::string footer = command->get_footer();
  return help + (footer.empty() ? "" : '\n' + footer + '\n');
}

void AddHelpCommand(CLI::App& app, Context& context) {
  CLI::App& help = AddCommand(app, "help", "Explain a command, as --help does", "perenna-access help user add");
  auto words = std::make_shared<std::vector<std::string>>();
  help.add_option("COMMAND", *words, "The command; none: the whole program");
  context.OnRun(help, [&app, words] {
    const Followed followed = Follow(app, *words);
    if (!followed.arguments.empty()) {
      throw Failure(Failure::Kind::Input, NotACommand(*followed.command, followed.arguments.front()));
    }
    // Its own help() would delegate to the command that is running.
    std::cout << HelpFormatter().make_help(followed.command, {}, CLI::AppFormatMode::Normal);
    return ExitStatus::Done;
  });
}

} // namespace Tool
