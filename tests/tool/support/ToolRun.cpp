#include "ToolRun.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <tuple>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace Testing {

namespace {

constexpr int TimeoutMilliseconds = 60000;

struct Pipe {
  Pipe() {
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
      throw std::runtime_error("no pipe");
    }
  }
  std::array<int, 2> ends{};
};

/// Becomes the program, away from any terminal if it is given standard streams.
[[noreturn]] void Execute(const std::string& database, std::vector<std::string> command,
                          const std::vector<int>& streams = {}) {
  if (!streams.empty()) {
    setsid();
  }
  for (std::size_t i = 0; i < streams.size(); ++i) {
    dup2(streams[i], static_cast<int>(i));
  }
  // NOLINTBEGIN(concurrency-mt-unsafe): in the child, which has one thread
  if (!database.empty()) {
    setenv("PERENNA_ACCESS_DATABASE", database.c_str(), 1);
  } else {
    unsetenv("PERENNA_ACCESS_DATABASE");
  }
  // NOLINTEND(concurrency-mt-unsafe)
  std::vector<char*> argv;
  argv.reserve(command.size() + 1);
  for (std::string& argument : command) {
    argv.push_back(argument.data());
  }
  argv.push_back(nullptr);
  execv(argv.front(), argv.data());
  _exit(127);
}

std::vector<std::string> ToolCommand(const std::vector<std::string>& arguments) {
  std::vector<std::string> command = {PERENNA_ACCESS_TOOL};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return command;
}

/// Reads what is there; false at the end.
bool ReadSome(int descriptor, std::string& text) {
  std::array<char, 65536> buffer{};
  const ssize_t count = read(descriptor, buffer.data(), buffer.size());
  if (count > 0) {
    text.append(buffer.data(), static_cast<std::size_t>(count));
  }
  return count > 0 || (count < 0 && errno == EINTR);
}

void TimeOut(pid_t process, const std::string& output) {
  kill(process, SIGKILL);
  ADD_FAILURE() << "the tool did not end or answer in time; its output so far:\n" << output;
}

} // namespace

int WaitFor(pid_t process) {
  int status = 0;
  while (waitpid(process, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

ToolResult RunTool(const std::string& database, const std::vector<std::string>& arguments, const std::string& input) {
  return ToolProcess(database, arguments).Finish(input);
}

namespace {

ToolResult Converse(const std::string& database, const std::vector<std::string>& command,
                    const std::vector<std::pair<std::string, std::string>>& dialogue, int signal = 0) {
  int terminal = -1;
  const pid_t process = forkpty(&terminal, nullptr, nullptr, nullptr);
  if (process == 0) {
    Execute(database, command);
  }
  ToolResult result;
  std::size_t answered = 0; // where the output since the last answer begins
  auto next = dialogue.begin();
  for (;;) {
    pollfd watched = {terminal, POLLIN, 0};
    if (poll(&watched, 1, TimeoutMilliseconds) == 0) {
      TimeOut(process, result.out);
      break;
    }
    if (!ReadSome(terminal, result.out)) {
      break;
    }
    if (next != dialogue.end() && result.out.find(next->first, answered) != std::string::npos) {
      answered = result.out.size();
      const std::string& answer = next->second;
      EXPECT_EQ(write(terminal, answer.data(), answer.size()), static_cast<ssize_t>(answer.size()));
      ++next;
      if (next == dialogue.end() && signal != 0) {
        kill(process, signal);
      }
    }
  }
  EXPECT_EQ(next, dialogue.end()) << "never asked: " << next->first << "\noutput:\n" << result.out;
  termios settings = {};
  result.echo = tcgetattr(terminal, &settings) == 0 && (settings.c_lflag & ECHO) != 0;
  close(terminal);
  result.status = WaitFor(process);
  return result;
}

} // namespace

ToolResult RunToolAtTerminal(const std::string& database, const std::vector<std::string>& arguments,
                             const std::vector<std::pair<std::string, std::string>>& dialogue, int signal) {
  return Converse(database, ToolCommand(arguments), dialogue, signal);
}

ToolResult RunAtTerminal(const std::vector<std::string>& command,
                         const std::vector<std::pair<std::string, std::string>>& dialogue) {
  return Converse({}, command, dialogue);
}

pid_t StartTool(const std::string& database, const std::vector<std::string>& arguments) {
  const pid_t process = fork();
  if (process == 0) {
    const int nowhere = open("/dev/null", O_RDWR);
    Execute(database, ToolCommand(arguments), {nowhere, nowhere, nowhere});
  }
  return process;
}

ToolProcess::ToolProcess(const std::string& database, const std::vector<std::string>& arguments, Reader reader,
                         Sigpipe sigpipe) {
  Pipe in;
  Pipe out;
  Pipe err;
  if (reader == Reader::IsGone) {
    close(std::exchange(out.ends[0], -1));
  }
  std::ignore = signal(SIGPIPE, SIG_IGN);
  m_Process = fork();
  if (m_Process == 0) {
    std::ignore = signal(SIGPIPE, sigpipe == Sigpipe::Ignored ? SIG_IGN : SIG_DFL);
    Execute(database, ToolCommand(arguments), {in.ends[0], out.ends[1], err.ends[1]});
  }
  close(in.ends[0]);
  close(out.ends[1]);
  close(err.ends[1]);
  m_Input = in.ends[1];
  m_Output = out.ends[0];
  m_Errors = err.ends[0];
}

ToolProcess::~ToolProcess() {
  if (m_Process > 0) {
    kill(m_Process, SIGKILL);
    WaitFor(m_Process);
  }
  for (const int descriptor : {m_Input, m_Output, m_Errors}) {
    if (descriptor >= 0) {
      close(descriptor);
    }
  }
}

void ToolProcess::Write(const std::string& text) const {
  EXPECT_EQ(write(m_Input, text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

std::string ToolProcess::ReadLine() {
  while (m_Read.find('\n') == std::string::npos) {
    pollfd watched = {m_Output, POLLIN, 0};
    if (poll(&watched, 1, TimeoutMilliseconds) != 1 || !ReadSome(m_Output, m_Read)) {
      ADD_FAILURE() << "the tool wrote no further line; so far: " << m_Read;
      return {};
    }
  }
  std::string line = m_Read.substr(0, m_Read.find('\n'));
  m_Read.erase(0, line.size() + 1);
  return line;
}

ToolResult ToolProcess::Finish(const std::string& input) {
  ToolResult result;
  std::size_t written = 0;
  std::array<pollfd, 3> watched = {{{m_Output, POLLIN, 0}, {m_Errors, POLLIN, 0}, {m_Input, POLLOUT, 0}}};
  while (watched[0].fd >= 0 || watched[1].fd >= 0) {
    if (watched[2].fd >= 0 && written == input.size()) {
      close(std::exchange(m_Input, -1));
      watched[2].fd = -1;
    }
    if (poll(watched.data(), watched.size(), TimeoutMilliseconds) == 0) {
      TimeOut(m_Process, m_Read + result.err);
      break;
    }
    if (watched[0].revents != 0 && !ReadSome(m_Output, m_Read)) {
      watched[0].fd = -1;
    }
    if (watched[1].revents != 0 && !ReadSome(m_Errors, result.err)) {
      watched[1].fd = -1;
    }
    if (watched[2].fd >= 0 && watched[2].revents != 0) {
      const std::size_t chunk = std::min<std::size_t>(input.size() - written, 4096); // never blocks once writable
      const ssize_t count = write(m_Input, input.data() + written, chunk);
      written = count < 0 ? input.size() : written + static_cast<std::size_t>(count);
    }
  }
  result.out = std::exchange(m_Read, {});
  result.status = Wait();
  return result;
}

} // namespace Testing
