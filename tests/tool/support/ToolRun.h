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
  std::string err;   ///< at a terminal: empty, both streams are `out`
  bool echo = false; ///< whether the terminal was left with its echo on
};

/// Runs perenna-access with `arguments`, `input` on standard input and without a terminal. PERENNA_ACCESS_DATABASE is
/// set to `database` unless that is empty. Fails the test after 60 s.
ToolResult RunTool(const std::string& database, const std::vector<std::string>& arguments,
                   const std::string& input = {});

/// The same at a terminal of its own (a pty): every time the output since the last answer ends with the next prompt,
/// its answer is typed. Prompts and answers alternate in `dialogue`; a signal is sent after the last prompt.
ToolResult RunToolAtTerminal(const std::string& database, const std::vector<std::string>& arguments,
                             const std::vector<std::pair<std::string, std::string>>& dialogue, int signal = 0);

/// The same for any program, its path first; PERENNA_ACCESS_DATABASE is not set.
ToolResult RunAtTerminal(const std::vector<std::string>& command,
                         const std::vector<std::pair<std::string, std::string>>& dialogue);

/// Starts the tool and does not wait for it; output is discarded. For tests that end it by its id.
pid_t StartTool(const std::string& database, const std::vector<std::string>& arguments);

/// Waits for a process and returns its status as `ToolResult::status`.
int WaitFor(pid_t process);

/// A running tool whose standard streams are pipes in the test's hands. Ended, if need be, when it goes out of scope.
class ToolProcess {
public:
  enum class Reader { Listens, IsGone }; ///< who reads the output, from the start
  enum class Sigpipe { Default, Ignored };

  ToolProcess(const std::string& database, const std::vector<std::string>& arguments, Reader reader = Reader::Listens,
              Sigpipe sigpipe = Sigpipe::Default);
  ~ToolProcess();
  ToolProcess(const ToolProcess&) = delete;
  ToolProcess& operator=(const ToolProcess&) = delete;

  pid_t Id() const { return m_Process; }
  void Write(const std::string& text) const;
  /// The next line of its output; fails the test, and is empty, when none comes within 60 s.
  std::string ReadLine();
  /// Waits for its end with its standard input still open.
  int Wait() { return WaitFor(std::exchange(m_Process, -1)); }
  /// Writes the rest of its input, closes that and waits; `ToolResult::out` is what was not read yet.
  ToolResult Finish(const std::string& input = {});

private:
  pid_t m_Process = -1;
  int m_Input = -1;
  int m_Output = -1;
  int m_Errors = -1;
  std::string m_Read;
};

} // namespace Testing
