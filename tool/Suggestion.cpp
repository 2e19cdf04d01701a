#include "Suggestion.h"

#include <algorithm>

#include "Text.h"

namespace Tool {

namespace {

constexpr std::size_t MaximumEdits = 2;

/// The candidate nearest to `word`, empty when none is near.
std::string Nearest(const std::string& word, const std::vector<std::string>& candidates) {
  std::string nearest;
  std::size_t least = MaximumEdits + 1;
  for (const std::string& candidate : candidates) {
    const std::size_t edits = EditDistance(word, candidate);
    if (edits < least && edits < candidate.size()) {
      least = edits;
      nearest = candidate;
    }
  }
  return nearest;
}

std::vector<std::string> SubcommandNames(const CLI::App& app) {
  std::vector<std::string> names;
  for (const CLI::App* const command : app.get_subcommands({})) {
    names.push_back(command->get_name());
  }
  return names;
}

std::vector<std::string> OptionNames(const CLI::App& app) {
  std::vector<std::string> names;
  for (const CLI::App* level = &app; level != nullptr; level = level->get_parent()) {
    for (const CLI::Option* const option : level->get_options({})) {
      for (const std::string& name : option->get_lnames()) {
        names.push_back("--" + name);
      }
    }
  }
  return names;
}

bool TakesValue(const CLI::App& app, const std::string& argument) {
  const CLI::Option* const option = app.get_option_no_throw(argument);
  return option != nullptr && option->get_items_expected_max() > 0;
}

} // namespace

std::string Explain(const CLI::App& app, const CLI::ParseError& error, const std::vector<std::string>& arguments) {
  // Follow the words that name subcommands as far as they do.
  const CLI::App* command = &app;
  std::string path = "perenna-access";
  std::string unknown;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    if (argument.rfind('-', 0) == 0) {
      i += argument.find('=') == std::string::npos && TakesValue(app, argument) ? 1 : 0;
      continue;
    }
    const auto names = SubcommandNames(*command);
    if (std::find(names.begin(), names.end(), argument) == names.end()) {
      unknown = names.empty() ? std::string() : argument;
      break;
    }
    command = command->get_subcommand(argument);
    path += " " + argument;
  }

  std::string text = "perenna-access: ";
  std::string guess;
  if (!unknown.empty()) {
    text += Quoted(unknown) + " is not a command of \"" + path + '"';
    guess = Nearest(unknown, SubcommandNames(*command));
  } else {
    text += Shown(error.what(), Backslash::Kept);
    for (const std::string& argument : arguments) {
      const std::string name = argument.substr(0, argument.find('='));
      const auto names = OptionNames(*command);
      if (name.rfind("--", 0) == 0 && std::find(names.begin(), names.end(), name) == names.end()) {
        guess = Nearest(name, names);
        break;
      }
    }
  }
  text += guess.empty() ? std::string("\n") : "\nDid you mean \"" + guess + "\"?\n";
  return text + "\"" + path + " --help\" tells what it takes.\n";
}

} // namespace Tool
