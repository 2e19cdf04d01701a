#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

namespace Host {

/// A file of lines, written by a thread of its own so that nobody who has something to log ever waits for a disk. What
/// cannot be written, or comes faster than it can be written, is lost and counted.
///
/// The lock guards the lines that wait; it is not held while the file is touched. Any thread may call any operation.
/// Signals that other threads wait for have to be blocked before it is made.
class LogFile {
public:
  /// Opens `name` for appending, made with mode 0640 if need be; an empty name: no line is written. Throws
  /// `AccessDirectory::Failure` of kind System.
  explicit LogFile(std::string name);
  /// Writes what waits.
  ~LogFile();
  LogFile(const LogFile&) = delete;
  LogFile& operator=(const LogFile&) = delete;

  /// Whether a line goes anywhere; where it does not, none need be made.
  bool TakesLines() const noexcept { return !m_Name.empty(); }

  /// Takes a line, its line end included.
  void Write(std::string_view line);

  /// Opens the file of that name anew, soon, for one that was renamed. Where that fails the old one is kept, and the
  /// log says so.
  void Reopen();

  std::uint64_t LinesLost() const noexcept { return m_Lost.load(std::memory_order_relaxed); }

private:
  void Run();
  void WriteOut(const std::string& lines);

  const std::string m_Name;
  int m_Descriptor = -1;     // the writer's own
  bool m_EndsInLine = false; // the writer's own: the last write broke off, and the next has to begin a line
  std::atomic<std::uint64_t> m_Lost{0};

  std::mutex m_Mutex;
  std::condition_variable m_Wake;
  std::string m_Waiting;
  bool m_Reopen = false;
  bool m_Stop = false;
  std::thread m_Writer; // last: it uses all of the above
};

} // namespace Host
