#pragma once

#include <string>
#include <utility>
#include <vector>

#include <sys/types.h>

namespace Testing {

/// What a finished run of the tool left behind.
struct ToolResult {
  int status = -1; ///< the exit status, or 128 + the signal that ended it, as a shell has it
  std::string out;
  std::string err; ///< at a terminal: empty, both streams are `out`
};

/// Runs perenna-access with `arguments`, `input` on standard input and without a terminal. PERENNA_ACCESS_DATABASE is
/// set to `database` unless that is empty. Fails the test after 60 s.
ToolResult RunTool(const std::string& database, const std::vector<std::string>& arguments,
                   const std::string& input = {});

/// The same at a terminal of its own (a pty): every time the output since the last answer ends with the next prompt,
/// its answer is typed. Prompts and answers alternate in `dialogue`.
ToolResult RunToolAtTerminal(const std::string& database, const std::vector<std::string>& arguments,
                             const std::vector<std::pair<std::string, std::string>>& dialogue);

/// The same for any program, its path first; PERENNA_ACCESS_DATABASE is not set.
ToolResult RunAtTerminal(const std::vector<std::string>& command,
                         const std::vector<std::pair<std::string, std::string>>& dialogue);

/// Starts the tool and does not wait for it; output is discarded. For tests that end it by its id.
pid_t StartTool(const std::string& database, const std::vector<std::string>& arguments);

/// Waits for a process and returns its status as `ToolResult::status`.
int WaitFor(pid_t process);

} // namespace Testing
