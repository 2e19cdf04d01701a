#include "tool/cli/CommandTree.h"

#include <algorithm>

namespace Tool {

namespace {

constexpr const char* UntypedValue = "TEXT"; // the parser's name for the type of a text

bool Repeats(const CLI::Option& option) {
  return option.get_expected_max() >= CLI::detail::expected_max_vector_size;
}

std::vector<const CLI::Option*> VisibleOptions(const CLI::App& command, bool positional) {
  return command.get_options([positional](const CLI::Option* option) {
    return option->get_positional() == positional && !option->get_group().empty();
  });
}

const CLI::App* FindSubcommand(const CLI::App& command, const std::string& name) {
  for (const CLI::App* const subcommand : command.get_subcommands({})) {
    if (subcommand->get_name() == name) {
      return subcommand;
    }
  }
  return nullptr;
}

} // namespace

std::vector<const CLI::App*> Subcommands(const CLI::App& command) {
  return command.get_subcommands([](const CLI::App* subcommand) { return !subcommand->get_group().empty(); });
}

std::vector<const CLI::Option*> Options(const CLI::App& command) {
  return VisibleOptions(command, false);
}

std::vector<const CLI::Option*> Arguments(const CLI::App& command) {
  return VisibleOptions(command, true);
}

std::vector<const CLI::Option*> GlobalOptions(const CLI::App& subcommand) {
  const CLI::App* root = &subcommand;
  while (root->get_parent() != nullptr) {
    root = root->get_parent();
  }
  if (root == &subcommand) {
    return {};
  }
  return root->get_options([root](const CLI::Option* option) {
    return !option->get_group().empty() && option != root->get_help_ptr() && option != root->get_version_ptr();
  });
}

std::string Summary(const CLI::App& command) {
  const std::string description = command.get_description();
  return description.substr(0, description.find('\n'));
}

std::string Details(const CLI::App& command) {
  const std::string description = command.get_description();
  return description.substr(std::min(Summary(command).size() + 1, description.size()));
}

std::string CommandPath(const CLI::App& command) {
  return command.get_parent() == nullptr ? command.get_name()
                                         : CommandPath(*command.get_parent()) + " " + command.get_name();
}

std::string Usage(const CLI::App& command) {
  std::string usage = CommandPath(command) + " [OPTIONS]";
  for (const CLI::Option* const argument : Arguments(command)) {
    const std::string name = argument->get_name(true) + (Repeats(*argument) ? "..." : "");
    usage += argument->get_required() ? " " + name : " [" + name + "]";
  }
  return usage + (Subcommands(command).empty() ? "" : " COMMAND");
}

std::vector<std::string> OptionNames(const CLI::Option& option) {
  std::vector<std::string> names;
  for (const std::string& name : option.get_snames()) {
    names.push_back("-" + name);
  }
  for (const std::string& name : option.get_lnames()) {
    names.push_back("--" + name);
  }
  return names;
}

bool TakesValue(const CLI::Option& option) {
  return option.get_items_expected_max() > 0;
}

std::string ValueName(const CLI::Option& option) {
  const std::string type = option.get_type_name();
  const std::string name = type.substr(type.rfind(':') + 1); // behind what a check narrows: "INT:NUMBER"
  return option.get_positional() && (name == UntypedValue || name.front() == '{') ? option.get_name(true) : name;
}

std::vector<std::string> Choices(const CLI::Option& option) {
  const std::string type = option.get_type_name();
  const std::size_t begin = type.rfind('{');
  const std::size_t end = type.rfind('}');
  return begin == std::string::npos || end < begin ? std::vector<std::string>()
                                                   : CLI::detail::split(type.substr(begin + 1, end - begin - 1), ',');
}

std::string FullDescription(const CLI::Option& option) {
  std::string description = option.get_description();
  if (!option.get_default_str().empty()) {
    description += " (default: " + option.get_default_str() + ")";
  }
  std::vector<std::string> excluded;
  for (const CLI::Option* const other : option.get_excludes()) {
    excluded.push_back(OptionNames(*other).back());
  }
  std::sort(excluded.begin(), excluded.end());
  return description + (excluded.empty() ? "" : " (not with " + CLI::detail::join(excluded, ", ") + ")");
}

const CLI::Option* Followed::NextArgument() const {
  const auto all = Arguments(*command);
  if (arguments.size() < all.size()) {
    return all[arguments.size()];
  }
  return !all.empty() && Repeats(*all.back()) ? all.back() : nullptr;
}

const CLI::Option* FindOption(const CLI::App& command, const std::string& name) {
  for (const CLI::App* level = &command; level != nullptr; level = level->get_parent()) {
    for (const CLI::Option* const option : level->get_options({})) {
      const auto names = OptionNames(*option);
      if (std::find(names.begin(), names.end(), name) != names.end()) {
        return option;
      }
    }
  }
  return nullptr;
}

Followed Follow(const CLI::App& root, const std::vector<std::string>& words,
                const std::function<void(const CLI::Option&, const std::string&)>& take) {
  constexpr std::size_t ShortBytes = 2; // "-d": its value may follow at once
  Followed followed;
  followed.command = &root;
  const auto give = [&](const CLI::Option& option, const std::string& value) {
    if (take) {
      take(option, value);
    }
  };
  for (const std::string& word : words) {
    if (followed.needs_value != nullptr) {
      give(*followed.needs_value, word);
      followed.needs_value = nullptr;
      continue;
    }
    if (followed.options_ended || word.size() < ShortBytes || word.front() != '-') {
      const CLI::App* const subcommand =
          followed.options_ended || !followed.arguments.empty() ? nullptr : FindSubcommand(*followed.command, word);
      if (subcommand != nullptr) {
        followed.command = subcommand;
      } else {
        followed.arguments.push_back(word);
      }
      continue;
    }
    if (word == "--") {
      followed.options_ended = true;
      continue;
    }
    const bool is_long = word[1] == '-';
    const std::size_t name_bytes = is_long ? std::min(word.find('='), word.size()) : ShortBytes;
    const std::string name = word.substr(0, name_bytes);
    const CLI::Option* const option = FindOption(*followed.command, name);
    if (option == nullptr) {
      followed.unknown_options.push_back(name);
      continue;
    }
    followed.given.push_back(option);
    if (TakesValue(*option) && name_bytes + (is_long ? 1 : 0) >= word.size()) { // "--option=" too
      followed.needs_value = option;
    } else if (TakesValue(*option)) {
      give(*option, word.substr(name_bytes + (is_long ? 1 : 0)));
    }
  }
  return followed;
}

bool IsGiven(const CLI::App& root, const std::vector<std::string>& words, const std::string& name) {
  const Followed followed = Follow(root, words);
  return std::find(followed.given.begin(), followed.given.end(), FindOption(root, name)) != followed.given.end();
}

} // namespace Tool
