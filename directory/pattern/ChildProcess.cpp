#include "directory/pattern/ChildProcess.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <system_error>

#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include "directory/Failure.h"

namespace AccessDirectory {

namespace {

constexpr int ChannelInChild = 3;            // after the standard ones
constexpr int PatienceMilliseconds = 60'000; // for a child that has not used up its time: the machine is very busy
constexpr int OutOfMemory = 1;               // exit status

[[noreturn]] void Fail() {
  throw Failure(Failure::Kind::System,
                "no process could be started to look at patterns: " + std::generic_category().message(errno));
}

bool Write(int channel, const char* bytes, std::size_t count) {
  while (count > 0) {
    const ssize_t written = send(channel, bytes, count, MSG_NOSIGNAL);
    if (written < 0 && errno == EINTR) {
      continue;
    }
    if (written <= 0) {
      return false;
    }
    bytes += written;
    count -= static_cast<std::size_t>(written);
  }
  return true;
}

bool Read(int channel, char* bytes, std::size_t count, int patience) {
  while (count > 0) {
    pollfd ready = {channel, POLLIN, 0};
    const int polled = poll(&ready, 1, patience);
    const ssize_t read = polled > 0 ? recv(channel, bytes, count, 0) : polled;
    if (read < 0 && errno == EINTR) {
      continue;
    }
    if (read <= 0) {
      return false;
    }
    bytes += read;
    count -= static_cast<std::size_t>(read);
  }
  return true;
}

bool WriteMessage(int channel, const std::string& message) {
  const auto size = static_cast<std::uint32_t>(message.size());
  return Write(channel, reinterpret_cast<const char*>(&size), sizeof size) &&
         Write(channel, message.data(), message.size());
}

bool ReadMessage(int channel, std::string& message, int patience) {
  std::uint32_t size = 0;
  if (!Read(channel, reinterpret_cast<char*>(&size), sizeof size, patience)) {
    return false;
  }
  message.resize(size);
  return Read(channel, message.data(), size, patience);
}

/// What this process has of memory, by address.
std::size_t OccupiedBytes() {
  std::size_t pages = 0;
  if (std::FILE* const file = std::fopen("/proc/self/statm", "re")) {
    std::array<char, 64> line{};
    pages = std::fgets(line.data(), line.size(), file) == nullptr ? 0 : std::strtoull(line.data(), nullptr, 10);
    static_cast<void>(std::fclose(file));
  }
  return pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

/// Lets the child's signals end it, and nothing else: the parent's handlers are about the parent.
void ResetSignals() {
  for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPROF, SIGSEGV, SIGPIPE}) {
    static_cast<void>(std::signal(number, SIG_DFL));
  }
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_UNBLOCK, &all, nullptr);
}

void StartClock(unsigned seconds) {
  itimerval time{};
  time.it_value.tv_sec = seconds;
  setitimer(ITIMER_PROF, &time, nullptr);
}

} // namespace

ChildProcess::ChildProcess(const Limits& limits, const std::function<Work()>& begin) : m_Limits(limits) {
  std::array<int, 2> ends{};
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
    Fail();
  }
  const pid_t parent = getpid();
  m_Process = fork();
  if (m_Process == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent) {
      _exit(0);
    }
    Run(ends[1], limits, begin);
  }
  close(ends[1]);
  m_Channel = ends[0];
  if (m_Process < 0) {
    close(m_Channel);
    Fail();
  }
}

ChildProcess::~ChildProcess() {
  End();
}

void ChildProcess::Run(int channel, const Limits& limits, const std::function<Work()>& begin) {
  ResetSignals();
  const rlimit bytes = {OccupiedBytes() + limits.bytes, OccupiedBytes() + limits.bytes};
  setrlimit(RLIMIT_AS, &bytes);
  if (dup2(channel, ChannelInChild) < 0 || close_range(ChannelInChild + 1, ~0U, 0) != 0) {
    _exit(0);
  }
  try {
    StartClock(limits.seconds);
    const Work work = begin();
    for (std::string message; ReadMessage(ChannelInChild, message, -1);) {
      StartClock(limits.seconds);
      work(message, [](const std::string& answer) { return WriteMessage(ChannelInChild, answer); });
    }
  } catch (const std::exception&) { // whatever it is, there is nobody here to tell
    _exit(OutOfMemory);
  }
  _exit(0);
}

bool ChildProcess::Put(const std::string& message) const {
  return m_Process > 0 && WriteMessage(m_Channel, message);
}

bool ChildProcess::Get(std::string& message) const {
  return m_Process > 0 && ReadMessage(m_Channel, message, PatienceMilliseconds);
}

std::chrono::nanoseconds ChildProcess::ProcessorTime() const {
  clockid_t clock = 0;
  timespec time{};
  if (m_Process <= 0 || clock_getcpuclockid(m_Process, &clock) != 0 || clock_gettime(clock, &time) != 0) {
    return {};
  }
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

ChildProcess::Ending ChildProcess::End() {
  if (m_Process <= 0) {
    return {};
  }
  close(m_Channel);
  int status = 0;
  if (waitpid(m_Process, &status, WNOHANG) == 0) {
    kill(m_Process, SIGKILL);
    while (waitpid(m_Process, &status, 0) < 0 && errno == EINTR) {
    }
  }
  m_Process = -1;
  if (WIFSIGNALED(status) && WTERMSIG(status) == SIGPROF) {
    return {true, "more than " + std::to_string(m_Limits.seconds) + " s"};
  }
  return {false, "more than " + std::to_string(m_Limits.bytes / 1024 / 1024) + " MiB"};
}

} // namespace AccessDirectory
