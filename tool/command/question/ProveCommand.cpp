#include "tool/command/Commands.h"

#include <iostream>
#include <istream>
#include <iterator>
#include <memory>

#include "directory/policy/AccessRulesReader.h"
#include "directory/policy/Proof.h"
#include "directory/transfer/Input.h"
#include "tool/command/question/Proofs.h"
#include "tool/terminal/ProgressBar.h"

namespace Tool {

namespace {

struct ProveOptions {
  std::vector<std::string> sentences;
  std::string file;
  std::string target;
};

std::vector<Sentence> SentencesOf(const ProveOptions& options, const TargetRules& rules) {
  std::vector<Sentence> sentences;
  for (const std::string& text : options.sentences) {
    sentences.push_back(ReadSentence(text, rules));
  }
  if (!options.file.empty()) {
    ProgressBar progress;
    Input input(options.file, progress);
    const std::string text{std::istreambuf_iterator<char>(&input), std::istreambuf_iterator<char>()};
    try {
      const std::vector<Sentence> more = ReadSentences(text, rules);
      sentences.insert(sentences.end(), more.begin(), more.end());
    } catch (const Failure& failure) {
      throw Failure(failure.What(),
                    (options.file == "-" ? "standard input" : Quoted(options.file)) + ", " + failure.what());
    }
  }
  if (sentences.empty()) {
    throw Failure(Failure::Kind::Input,
                  "what is to be proved? Give a SENTENCE, such as \"nobody may DELETE anywhere\", or --file FILE");
  }
  return sentences;
}

void Print(const Sentence& sentence, const Verdict& verdict) {
  using Kind = Verdict::Kind;
  const std::string text = Shown(sentence.text, Backslash::Kept);
  if (verdict.kind == Kind::True) {
    std::cout << InColour("true", Colour::Green) << "     " << text
              << (verdict.users == 0 ? " (it speaks of no user)" : "") << '\n';
    return;
  }
  const std::string request = Shown(verdict.user) + ' ' + MethodToString(verdict.method);
  if (verdict.kind == Kind::False) {
    std::cout << InColour("false", Colour::Red) << "    " << text << "\n         " << request << ' '
              << Shown(verdict.target) << " is " << (sentence.may ? "refused" : "allowed") << '\n';
  } else {
    std::cout << InColour("unknown", Colour::Bold) << "  " << text << "\n         " << request << ": " << verdict.why
              << '\n';
  }
}

ExitStatus RunProofs(const Context& context, const ProveOptions& options) {
  const TargetRules rules = RulesFor(context, options.target);
  const std::vector<Sentence> sentences = SentencesOf(options, rules);
  Patterns patterns;
  const AccessRules policy = [&] {
    Database database(context.DatabaseFile(), Database::Access::Read);
    return ReadAccessRules(database, patterns);
  }();
  Solver solver(patterns, rules);
  Json results = Json::array();
  bool all_hold = true;
  for (const Sentence& sentence : sentences) {
    const Verdict verdict = Prove(sentence, policy, patterns, solver);
    all_hold = all_hold && verdict.kind == Verdict::Kind::True;
    if (context.WantsJson()) {
      results.push_back(verdict.ToJson(sentence));
    } else {
      Print(sentence, verdict);
    }
  }
  if (context.WantsJson()) {
    PrintJson({{"targets", TargetsJson(rules)}, {"holds", all_hold}, {"sentences", std::move(results)}});
  } else {
    std::cout << (sentences.size() == 1 ? "That is about " : "These are about ") << TargetsText(rules) << ".\n";
  }
  return all_hold ? ExitStatus::Done : ExitStatus::Refused;
}

} // namespace

void AddProveCommand(CLI::App& app, Context& context) {
  CLI::App& command = AddCommand(
      app, "prove",
      "Prove sentences about what users may do, on all targets, or show where they are wrong\n"
      "A sentence is: SUBJECT may METHODS PLACE. SUBJECT: nobody, nobody outside GROUP, no member of GROUP, everybody, "
      "everybody in GROUP, user USER (who may, or \"may not\"). METHODS: PUT, POST and DELETE, or: do anything. PLACE: "
      "anywhere, PATH, below PATH, PATH and all below, matching PATTERN. Exit status 1: not all are true.",
      "perenna-access prove 'nobody outside staff may PUT, POST or DELETE below /payroll'\n"
      "  perenna-access prove 'everybody in staff may GET /help and all below'\n"
      "  perenna-access prove --file promises.txt");
  auto options = std::make_shared<ProveOptions>();
  command.add_option("SENTENCE", options->sentences, "Sentences, each in quotes");
  command
      .add_option("--file", options->file,
                  "A file of sentences, one a line, \"#\" before comments; - for standard input")
      ->type_name("FILE");
  AddTargetOption(command, options->target);
  context.OnRun(command, [&context, options] { return RunProofs(context, *options); });
}

} // namespace Tool
