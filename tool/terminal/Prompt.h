#pragma once

#include <string>

#include "directory/credential/Secret.h"
#include "tool/DirectoryNames.h"

namespace Tool {

/// Thrown when a prompt is answered with Ctrl-C, or a signal that ends processes comes while it waits. The terminal is
/// as it was, at the beginning of a line.
struct Cancelled {};

/// Makes the process unfit for core dumps and for being traced by others: it handles passwords.
void ProtectProcess() noexcept;

/// Whether there is a terminal to ask at.
bool HasTerminal() noexcept;

/// Asks for a new password twice at the controlling terminal, without echo, until both are the same (three rounds).
/// Throws `Cancelled`, also for Ctrl-D, or `Failure`: no terminal, never the same, empty.
Secret AskForNewPassword(const std::string& whose);

/// Asks for a password once, likewise. An empty one is what was typed.
Secret AskForPassword(const std::string& prompt);

/// Asks a yes-or-no question at the controlling terminal; `otherwise` on an empty answer. Throws `Cancelled`, also for
/// Ctrl-D, or `Failure` where there is no terminal.
bool AskYesOrNo(const std::string& question, bool otherwise);

/// The first line of `path` ("-" for standard input) without its line end. Throws `Failure`: unreadable, empty, too
/// long, or more than one line.
Secret ReadPasswordFile(const std::string& path);

} // namespace Tool
