#include "tool/cli/Arguments.h"

namespace Tool {

namespace {

constexpr char Mark = '\x1f';

bool IsMarkable(const std::string& text) {
  return !text.empty() && text.front() == '[';
}

} // namespace

std::vector<std::string> ArgumentsToParse(const std::vector<std::string>& arguments) {
  std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
  for (std::string& argument : reversed) {
    if (IsMarkable(argument)) {
      argument += Mark;
    }
  }
  return reversed;
}

void TakeLiterally(CLI::App& command) {
  for (CLI::Option* const option : command.get_options({})) {
    if (option->get_items_expected_max() > 0) {
      option->transform(CLI::Validator(
          [](std::string& text) {
            if (IsMarkable(text) && text.back() == Mark) {
              text.pop_back();
            }
            return std::string();
          },
          ""));
    }
  }
  for (CLI::App* const subcommand : command.get_subcommands({})) {
    TakeLiterally(*subcommand);
  }
}

} // namespace Tool
