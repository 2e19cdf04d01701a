#pragma once

#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace Tool {

// What the help, the manual page, the completions and the error messages say about commands is read from the command
// line's own description. Commands and options without a group are hidden.
//
// A value's name tells the completions what it is: FILE, USER, GROUP, METHOD, ACTION, COMMAND; an argument's is its
// type name, if it was given one, else its own name. An id that does not exist yet has the type name NEW.

/// The visible subcommands, in the order of the help.
std::vector<const CLI::App*> Subcommands(const CLI::App& command);

/// The visible options, and the arguments, in the order of the help.
std::vector<const CLI::Option*> Options(const CLI::App& command);
std::vector<const CLI::Option*> Arguments(const CLI::App& command);

/// The options of the whole program that a subcommand takes as well as its own.
std::vector<const CLI::Option*> GlobalOptions(const CLI::App& subcommand);

/// The first line of a command's description, which stands for it in lists; the rest is sentences.
std::string Summary(const CLI::App& command);
std::string Details(const CLI::App& command);

/// "perenna-access user add".
std::string CommandPath(const CLI::App& command);

/// "perenna-access user add [OPTIONS] USER".
std::string Usage(const CLI::App& command);

/// Every way to write an option: "-d", "--database".
std::vector<std::string> OptionNames(const CLI::Option& option);

bool TakesValue(const CLI::Option& option);

/// What the value of an option or argument is called.
std::string ValueName(const CLI::Option& option);

/// The values that an option or argument is limited to, if it is.
std::vector<std::string> Choices(const CLI::Option& option);

/// The description with the default, and the options that it cannot be given with.
std::string FullDescription(const CLI::Option& option);

/// How far a command line has come.
struct Followed {
  const CLI::App* command = nullptr;
  std::vector<const CLI::Option*> given;    ///< options
  const CLI::Option* needs_value = nullptr; ///< an option whose value would come next
  std::vector<std::string> arguments;       ///< what is neither a command nor an option
  std::vector<std::string> unknown_options; ///< as written, without a value
  bool options_ended = false;               ///< by "--"

  /// The argument that the next word would be; null when there are enough.
  const CLI::Option* NextArgument() const;
};

/// Follows the words after the program's name as the parser does. `take` gets the values of options.
Followed Follow(const CLI::App& root, const std::vector<std::string>& words,
                const std::function<void(const CLI::Option&, const std::string&)>& take = nullptr);

/// Whether the words hold the option called `name`, although they may be wrong in other respects.
bool IsGiven(const CLI::App& root, const std::vector<std::string>& words, const std::string& name);

/// The option called `name` of the command or of one above it; null for none.
const CLI::Option* FindOption(const CLI::App& command, const std::string& name);

} // namespace Tool
