#include "tool/cli/Suggestion.h"

#include <algorithm>

#include "directory/text/Text.h"
#include "tool/cli/CommandTree.h"
#include "tool/cli/help/Help.h"
#include "tool/DirectoryNames.h"

namespace Tool {

namespace {

constexpr std::size_t MaximumEdits = 2;

/// "Did you mean ...?" for the candidate nearest to `word`; empty when none is near.
std::string Guess(const std::string& word, const std::vector<std::string>& candidates) {
  std::string nearest;
  std::size_t least = MaximumEdits + 1;
  for (const std::string& candidate : candidates) {
    const std::size_t edits = EditDistance(word, candidate);
    if (edits < least && edits < candidate.size()) {
      least = edits;
      nearest = candidate;
    }
  }
  return nearest.empty() ? nearest : "\nDid you mean \"" + nearest + "\"?";
}

std::string UnknownOption(const CLI::App& command, const std::string& name) {
  std::vector<std::string> candidates;
  for (const CLI::App* level = &command; level != nullptr; level = level->get_parent()) {
    for (const CLI::Option* const option : Options(*level)) {
      const std::string candidate = OptionNames(*option).back();
      candidates.push_back(candidate);
    }
  }
  return "unknown option " + Shown(name) + (name.rfind("--", 0) == 0 ? Guess(name, candidates) : "");
}

bool EndsWith(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

/// The parser's own words, made ours where they are not clear.
std::string Reworded(const CLI::ParseError& error, const Followed& followed) {
  std::string text = Shown(error.what(), Backslash::Kept);
  const auto expected = Arguments(*followed.command).size();
  if (dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr && followed.arguments.size() > expected) {
    return "unexpected argument " + Quoted(followed.arguments[expected]);
  }
  if (followed.needs_value != nullptr) {
    return OptionNames(*followed.needs_value).back() + " needs a value: " + ValueName(*followed.needs_value);
  }
  const std::string too_many = ": At Most";
  if (const std::size_t name_end = text.find(too_many); name_end != std::string::npos) {
    return text.substr(0, name_end) + " is given more than once";
  }
  const std::string required = " is required";
  if (error.get_name() == "RequiredError" && EndsWith(text, required)) {
    return text.substr(0, text.size() - required.size()) + " is missing; usage: " + Usage(*followed.command);
  }
  const std::string excludes = " excludes ";
  if (const std::size_t between = text.find(excludes);
      error.get_name() == "ExcludesError" && between != std::string::npos) {
    return text.substr(0, between) + " and " + text.substr(between + excludes.size()) + " cannot be given together";
  }
  return text;
}

} // namespace

std::string NotACommand(const CLI::App& command, const std::string& word) {
  std::vector<std::string> names;
  for (const CLI::App* const subcommand : Subcommands(command)) {
    names.push_back(subcommand->get_name());
  }
  return Quoted(word) + " is not a command of \"" + CommandPath(command) + '"' + Guess(word, names);
}

std::string Explain(const CLI::App& app, const CLI::ParseError& error, const std::vector<std::string>& arguments) {
  const Followed followed = Follow(app, arguments);
  const CLI::App& command = *followed.command;
  const bool wants_command = !Subcommands(command).empty();
  std::string text;
  if (!followed.unknown_options.empty()) {
    text = UnknownOption(command, followed.unknown_options.front());
  } else if (wants_command && !followed.arguments.empty()) {
    text = NotACommand(command, followed.arguments.front());
  } else if (wants_command && error.get_name() == "RequiredError") {
    std::string list = SubcommandList(command);
    list.pop_back(); // the last line end
    return "which command of \"" + CommandPath(command) + "\"?\n" + list;
  } else {
    text = Reworded(error, followed);
  }
  return text + "\n\"" + CommandPath(command) + " --help\" tells what it takes.";
}

} // namespace Tool
