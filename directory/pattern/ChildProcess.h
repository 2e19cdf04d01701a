#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>

#include <sys/types.h>

namespace AccessDirectory {

/// A process of its own for work whose time and memory cannot be told beforehand: a copy of this one that answers
/// messages, one after the other, until it is ended or comes to its limits. It holds none of this process's files open
/// and ends with it. One thread uses an object.
class ChildProcess {
public:
  struct Limits {
    unsigned seconds = 2;                               ///< of processor time for one answer
    std::size_t bytes = std::size_t{512} * 1024 * 1024; ///< of memory beyond what this process has
  };

  /// Sends a message to the parent; gives false when it is gone.
  using Send = std::function<bool(const std::string& message)>;
  /// What the child does with a message: it sends one or more.
  using Work = std::function<void(const std::string& message, const Send& send)>;

  /// Starts the child, which calls `begin` and then the work that it gives for each message. Throws `Failure` (System)
  /// when the system starts no more processes.
  ChildProcess(const Limits& limits, const std::function<Work()>& begin);
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  /// False when the child has ended.
  bool Put(const std::string& message) const;
  bool Get(std::string& message) const;

  /// What it has taken so far; nothing once it has ended.
  std::chrono::nanoseconds ProcessorTime() const;

  struct Ending {
    bool out_of_time = false; ///< else out of memory
    std::string reason;       ///< in words that follow "it takes "
  };

  /// Ends it, if it has not ended, and tells what ended it.
  Ending End();

private:
  [[noreturn]] static void Run(int channel, const Limits& limits, const std::function<Work()>& begin);

  Limits m_Limits;
  int m_Channel = -1;
  pid_t m_Process = -1;
};

} // namespace AccessDirectory
