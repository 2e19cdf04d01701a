#pragma once

#include <optional>
#include <string>

#include "PN_HTTP.h"
#include "tool/cli/Context.h"

namespace Tool {

/// A request of a user, as a line of text.
struct Question {
  std::string user;
  Perenna::Method_t method = Perenna::METH_MAX;
  std::string target;
};

/// "USER METHOD TARGET", one blank between them; the user's id may itself hold blanks. Nothing for anything else.
std::optional<Question> ReadQuestion(std::string line);

/// Holds the directory to the lines of a file ("-": standard input): "allow USER METHOD TARGET" or "refuse ...", or a
/// sentence about all targets; empty lines and those that begin with "#" are left out. Prints version 13 of the Test
/// Anything Protocol, what is not met with the filter that decided or a counter-example; or JSON. `target`: as
/// `RulesFor` takes it. Throws `Failure` for a file with a line of another form, before anything is asked.
ExitStatus CheckExpectations(const Context& context, const std::string& file, const std::string& target);

} // namespace Tool
