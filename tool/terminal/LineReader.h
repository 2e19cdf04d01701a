#pragma once

#include <functional>
#include <string>

namespace Tool {

/// Reads standard input line by line through a buffer of its own, and calls `before_wait` before it waits for more.
class LineReader {
public:
  explicit LineReader(std::function<void()> before_wait) : m_BeforeWait(std::move(before_wait)) {}

  /// The next line without its line end; false at the end of the input. Throws `Failure` when reading fails or a line
  /// is longer than 2 MiB.
  bool Next(std::string& line);

private:
  bool Fill();

  std::function<void()> m_BeforeWait;
  std::string m_Buffer;
  std::size_t m_Position = 0;
  bool m_Ended = false;
};

} // namespace Tool
