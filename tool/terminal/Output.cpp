#include "tool/terminal/Output.h"

#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "directory/Failure.h"
#include "directory/text/Text.h"
#include "tool/DirectoryNames.h"

namespace Tool {

namespace {

constexpr std::size_t BufferBytes = 65536;

} // namespace

Output::Output() : m_Name("standard output"), m_Descriptor(STDOUT_FILENO) {}

Output::Output(const std::string& file, const std::string& name)
    : m_Name(Quoted(name)),
      m_Descriptor(open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR)) {
  if (m_Descriptor < 0) {
    throw Failure(Failure::Kind::System, "cannot create " + m_Name + ": " + std::generic_category().message(errno));
  }
}

Output::~Output() {
  if (m_Descriptor > STDERR_FILENO) {
    close(m_Descriptor);
  }
}

void Output::Write(std::string_view text) {
  m_Buffer += text;
  if (m_Buffer.size() >= BufferBytes) {
    Flush();
  }
}

void Output::Finish() {
  Flush();
  if (m_Descriptor > STDERR_FILENO && fsync(m_Descriptor) != 0) {
    Fail();
  }
}

void Output::Flush() {
  std::string_view left = m_Buffer;
  while (!left.empty()) {
    const ssize_t count = write(m_Descriptor, left.data(), left.size());
    if (count >= 0) {
      left.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno != EINTR) {
      Fail();
    }
  }
  m_Buffer.clear();
}

void Output::Fail() const {
  throw Failure(Failure::Kind::System, "cannot write " + m_Name + ": " + std::generic_category().message(errno));
}

} // namespace Tool
