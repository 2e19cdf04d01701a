#include "tool/cli/help/Completion.h"

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <memory>

#include "PN_HTTP.h"
#include "directory/file/Database.h"
#include "tool/cli/CommandTree.h"
#include "tool/cli/help/CompletionScripts.h"
#include "tool/command/Commands.h"
#include "tool/DirectoryNames.h"

namespace Tool {

namespace {

constexpr const char* DatabaseOption = "--database";
constexpr const char* ConfigurationOption = "--config";

bool BeginsWith(const std::string& text, const std::string& begin) {
  return text.rfind(begin, 0) == 0;
}

/// Collects what begins with the text that is to be completed.
class Collector {
public:
  Collector(Completions& completions, std::string begin) : m_Completions(completions), m_Begin(std::move(begin)) {}

  void Add(const std::string& word, const std::string& description = {}) {
    if (BeginsWith(word, m_Begin)) {
      m_Completions.words.emplace_back(m_Kept + word, description);
    }
  }

  void AddSubcommands(const CLI::App& command) {
    for (const CLI::App* const subcommand : Subcommands(command)) {
      Add(subcommand->get_name(), Summary(*subcommand));
    }
  }

  /// The long names of the options that can still be given.
  void AddOptions(const Followed& followed) {
    std::vector<const CLI::Option*> options = Options(*followed.command);
    const auto global = GlobalOptions(*followed.command);
    options.insert(options.end(), global.begin(), global.end());
    for (const CLI::Option* const option : options) {
      if (CanBeGiven(*option, followed)) {
        Add(OptionNames(*option).back(), option->get_description());
      }
    }
  }

  void AddValues(const CLI::Option& option, const IdSource& ids) {
    const std::string kind = ValueName(option);
    m_Completions.files = kind == "FILE";
    if (kind == "USER" || kind == "GROUP") {
      for (const std::string& id : ids(kind, m_Begin)) {
        Add(id);
      }
    } else if (kind == "METHOD") {
      Keep(m_Begin.substr(0, m_Begin.rfind(',') + 1)); // the methods before this one
      for (std::uint32_t method = 0; method < Perenna::METH_MAX; ++method) {
        Add(MethodToString(static_cast<Perenna::Method_t>(method)));
      }
    } else if (kind == "ACTION") {
      Add("Allow");
      Add("Deny");
    }
    for (const std::string& choice : Choices(option)) {
      Add(choice);
    }
  }

  /// Has the words begin with what is there already: "--option=".
  void Keep(const std::string& kept) {
    m_Kept += kept;
    m_Begin.erase(0, kept.size());
  }

private:
  static bool CanBeGiven(const CLI::Option& option, const Followed& followed) {
    return std::none_of(followed.given.begin(), followed.given.end(), [&option](const CLI::Option* given) {
      const auto excluded = given->get_excludes();
      return (given == &option && option.get_multi_option_policy() != CLI::MultiOptionPolicy::TakeAll) ||
             std::any_of(excluded.begin(), excluded.end(),
                         [&option](const CLI::Option* other) { return other == &option; });
    });
  }

  Completions& m_Completions;
  std::string m_Begin;
  std::string m_Kept;
};

/// Whether an id can stand on a command line as it is: nothing in it is special to a shell or drives a terminal.
bool IsPlain(const std::string& id) {
  return !id.empty() && id.front() != '-' &&
         id.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-.@+") ==
             std::string::npos;
}

/// Ids from the database that the words name; none if there is none to read.
std::vector<std::string> StoredIds(const Context& context, const std::string& kind, const std::string& begin) {
  const bool users = kind == "USER";
  std::vector<std::string> ids;
  try {
    Database database(context.DatabaseFile(), Database::Access::Read);
    ids = database.Texts(users ? "SELECT user_id FROM users WHERE substr(user_id, 1, length(?1)) = ?1 "
                                 "ORDER BY user_id LIMIT 1000"
                               : "SELECT group_id FROM groups WHERE substr(group_id, 1, length(?1)) = ?1 "
                                 "ORDER BY group_id LIMIT 1000",
                         {begin});
  } catch (const Failure&) { // whoever completes a command line does not want to read about it
    return {};
  }
  ids.erase(std::remove_if(ids.begin(), ids.end(), [](const std::string& id) { return !IsPlain(id); }), ids.end());
  return ids;
}

std::string WithHome(const std::string& path) {
  const char* const home = std::getenv("HOME"); // NOLINT(concurrency-mt-unsafe): nothing changes it
  return home != nullptr && BeginsWith(path, "~/") ? home + path.substr(1) : path;
}

struct CompleteOptions {
  std::string line;
  std::vector<std::string> words;
};

/// Prints "files" or "words", then the words, each with its description behind a tab.
ExitStatus PrintCompletions(CLI::App& app, const Context& context, const CompleteOptions& options) {
  std::vector<std::string> words = options.words;
  if (!options.line.empty()) {
    words = SplitCommandLine(options.line);
    words.erase(words.begin());
  }
  if (words.empty()) {
    words.emplace_back();
  }
  Follow(app, {words.begin(), words.end() - 1}, [&app](const CLI::Option& option, const std::string& value) {
    for (const char* const name : {DatabaseOption, ConfigurationOption}) {
      CLI::Option* const global = app.get_option(name);
      if (global == &option && !value.empty()) {
        global->clear();
        global->add_result(WithHome(value));
        global->run_callback();
      }
    }
  });
  const Completions completions = Complete(app, words, [&context](const std::string& kind, const std::string& begin) {
    return StoredIds(context, kind, begin);
  });
  std::cout << (completions.files ? "files\n" : "words\n");
  for (const auto& [word, description] : completions.words) {
    std::cout << word << '\t' << description << '\n';
  }
  return ExitStatus::Done;
}

} // namespace

Completions Complete(const CLI::App& root, std::vector<std::string> words, const IdSource& ids) {
  const std::string current = words.back();
  words.pop_back();
  Followed followed = Follow(root, words);
  Completions completions;
  Collector collector(completions, current);
  if (followed.needs_value != nullptr) {
    collector.AddValues(*followed.needs_value, ids);
    return completions;
  }
  if (!followed.options_ended && BeginsWith(current, "-")) {
    const std::size_t equals = current.find('=');
    const CLI::Option* const option = FindOption(*followed.command, current.substr(0, equals));
    if (equals == std::string::npos) {
      collector.AddOptions(followed);
    } else if (option != nullptr && TakesValue(*option)) {
      collector.Keep(current.substr(0, equals + 1));
      collector.AddValues(*option, ids);
    }
    return completions;
  }
  if (followed.arguments.empty()) {
    collector.AddSubcommands(*followed.command);
  }
  if (const CLI::Option* const argument = followed.NextArgument()) {
    if (ValueName(*argument) == "COMMAND") {
      collector.AddSubcommands(*Follow(root, followed.arguments).command);
    }
    collector.AddValues(*argument, ids);
  } else if (Subcommands(*followed.command).empty() && !followed.options_ended) {
    collector.AddOptions(followed);
  }
  return completions;
}

std::vector<std::string> SplitCommandLine(const std::string& line) {
  std::vector<std::string> words(1);
  bool in_word = false;
  char quote = 0;
  for (std::size_t i = 0; i < line.size(); ++i) {
    const char byte = line[i];
    const bool blank = byte == ' ' || byte == '\t' || byte == '\n';
    if (quote == 0 && blank) {
      if (in_word) {
        words.emplace_back();
      }
      in_word = false;
      continue;
    }
    in_word = true;
    if (quote != 0 && byte == quote) {
      quote = 0;
    } else if (quote == 0 && (byte == '\'' || byte == '"')) {
      quote = byte;
    } else if (byte == '\\' && quote != '\'') {
      words.back().append(line, ++i, 1);
    } else {
      words.back() += byte;
    }
  }
  return words;
}

void AddCompletionCommands(CLI::App& app, Context& context) {
  CLI::App& completion =
      AddCommand(app, "completion", "Print the script that completes command lines in a shell",
                 "source <(perenna-access completion bash)\n  perenna-access completion fish | source");
  auto shell = std::make_shared<std::string>();
  completion.add_option("SHELL", *shell, "bash, zsh or fish")->required()->check(CLI::IsMember(CompletionShells()));
  context.OnRun(completion, [shell] {
    std::cout << CompletionScript(*shell);
    return ExitStatus::Done;
  });

  CLI::App& complete =
      AddCommand(app, "complete", "Print how a command line may go on; for the scripts of \"completion\"",
                 "perenna-access complete -- user del");
  complete.group("");
  auto options = std::make_shared<CompleteOptions>();
  complete.add_option("--line", options->line, "The command line up to the cursor")->type_name("TEXT");
  complete.add_option("WORD", options->words, "The words after the program's name, the last one to be completed");
  context.OnRun(complete, [&app, &context, options] { return PrintCompletions(app, context, *options); });
}

} // namespace Tool
