#include "host/log/LogFile.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

#include "TN_log.h"
#include "directory/Failure.h"
#include "directory/text/Text.h"

namespace Host {

namespace {

using AccessDirectory::Failure;
using AccessDirectory::Quoted;

// Some ten thousand lines: what a disk may fall behind.
constexpr std::size_t MostWaitingBytes = 4UL * 1024UL * 1024UL;
// Lines are gathered for so long before they are written together; a wake-up costs more than a line.
constexpr std::chrono::milliseconds GatherTime(50);

/// Not blocking, since a pipe whose reader sleeps must not keep the process from its end.
int Open(const std::string& name) {
  constexpr mode_t Mode = 0640;
  return open(name.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, Mode);
}

std::uint64_t LineCount(std::string_view text) {
  return static_cast<std::uint64_t>(std::count(text.begin(), text.end(), '\n'));
}

} // namespace

LogFile::LogFile(std::string name) : m_Name(std::move(name)) {
  if (m_Name.empty()) {
    return;
  }
  m_Descriptor = Open(m_Name);
  if (m_Descriptor < 0) {
    throw Failure(Failure::Kind::System,
                  "cannot write the log " + Quoted(m_Name) + ": " + std::generic_category().message(errno));
  }
  m_Writer = std::thread([this] { Run(); });
}

LogFile::~LogFile() {
  {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_Stop = true;
  }
  m_Wake.notify_one();
  if (m_Writer.joinable()) {
    m_Writer.join();
    close(m_Descriptor);
  }
}

void LogFile::Write(std::string_view line) {
  if (!TakesLines()) {
    return;
  }
  bool wake = false;
  {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    if (m_Waiting.size() + line.size() > MostWaitingBytes) {
      m_Lost.fetch_add(1, std::memory_order_relaxed);
      return;
    }
    wake = m_Waiting.empty();
    m_Waiting.append(line);
  }
  if (wake) {
    m_Wake.notify_one();
  }
}

void LogFile::Reopen() {
  {
    const std::lock_guard<std::mutex> lock(m_Mutex);
    m_Reopen = true;
  }
  m_Wake.notify_one();
}

void LogFile::Run() {
  // A pipe whose reader is gone loses lines, nothing more.
  sigset_t pipe;
  sigemptyset(&pipe);
  sigaddset(&pipe, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &pipe, nullptr);

  std::string lines;
  for (bool stop = false; !stop;) {
    bool reopen = false;
    {
      std::unique_lock<std::mutex> lock(m_Mutex);
      m_Wake.wait(lock, [this] { return m_Stop || m_Reopen || !m_Waiting.empty(); });
      m_Wake.wait_for(lock, GatherTime, [this] { return m_Stop || m_Reopen; });
      lines.clear();
      lines.swap(m_Waiting);
      stop = m_Stop;
      reopen = std::exchange(m_Reopen, false);
    }
    // What waited was said before the file was to be opened anew: it belongs to the old one.
    WriteOut(lines);
    if (reopen) {
      const int descriptor = Open(m_Name);
      if (descriptor < 0) {
        Tarn::DefaultLogSink().Error("cannot reopen the log %s: %s\n", m_Name.c_str(),
                                     std::generic_category().message(errno).c_str());
        continue;
      }
      close(std::exchange(m_Descriptor, descriptor));
      m_EndsInLine = false;
    }
  }
}

void LogFile::WriteOut(const std::string& lines) {
  std::string_view rest = lines;
  while (!rest.empty()) {
    if (m_EndsInLine && write(m_Descriptor, "\n", 1) == 1) {
      m_EndsInLine = false;
    }
    const ssize_t count = m_EndsInLine ? -1 : write(m_Descriptor, rest.data(), rest.size());
    if (count > 0) {
      rest.remove_prefix(static_cast<std::size_t>(count));
    } else if (count == 0 || errno != EINTR) {
      // What stands between the last line end and here was begun and is not finished.
      m_EndsInLine = m_EndsInLine || (rest.size() < lines.size() && *(rest.data() - 1) != '\n');
      m_Lost.fetch_add(LineCount(rest), std::memory_order_relaxed);
      return;
    }
  }
}

} // namespace Host
