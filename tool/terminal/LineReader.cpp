#include "tool/terminal/LineReader.h"

#include <cerrno>
#include <system_error>

#include <unistd.h>

#include "directory/Failure.h"
#include "tool/DirectoryNames.h"

namespace Tool {

namespace {

constexpr std::size_t ReadBytes = 64UL * 1024UL;
constexpr std::size_t MaximumLineBytes = 2UL * 1024UL * 1024UL;

} // namespace

bool LineReader::Fill() {
  m_Buffer.erase(0, m_Position);
  m_Position = 0;
  if (m_Buffer.size() > MaximumLineBytes) {
    throw Failure(Failure::Kind::Input, "a line of standard input is longer than 2 MiB");
  }
  m_BeforeWait();
  const std::size_t before = m_Buffer.size();
  m_Buffer.resize(before + ReadBytes);
  ssize_t count = 0;
  do {
    count = read(STDIN_FILENO, m_Buffer.data() + before, ReadBytes);
  } while (count < 0 && errno == EINTR);
  if (count < 0) {
    throw Failure(Failure::Kind::System, "cannot read standard input: " + std::generic_category().message(errno));
  }
  m_Buffer.resize(before + static_cast<std::size_t>(count));
  return count > 0;
}

bool LineReader::Next(std::string& line) {
  std::size_t searched = m_Position;
  for (;;) {
    const std::size_t end = m_Buffer.find('\n', searched);
    if (end != std::string::npos) {
      line.assign(m_Buffer, m_Position, end - m_Position);
      m_Position = end + 1;
      return true;
    }
    searched = m_Buffer.size() - m_Position; // where the part read so far ends once it has moved to the front
    if (m_Ended || !Fill()) {
      m_Ended = true;
      line.assign(m_Buffer, m_Position, std::string::npos);
      m_Position = m_Buffer.size();
      return !line.empty();
    }
  }
}

} // namespace Tool
