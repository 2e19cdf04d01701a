#include "directory/transfer/Input.h"

#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "directory/Failure.h"
#include "directory/text/Text.h"

namespace AccessDirectory {

namespace {

constexpr std::size_t LargeBytes = 1024UL * 1024UL;

/// The size of a regular file; 0 of anything else, which has none beforehand.
std::size_t Size(int descriptor) {
  struct stat status = {};
  return fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) ? static_cast<std::size_t>(status.st_size) : 0;
}

} // namespace

Input::Input(const std::string& name, Progress& progress)
    : m_Name(name == "-" ? "standard input" : Quoted(name)),
      m_Descriptor(name == "-" ? STDIN_FILENO : open(name.c_str(), O_RDONLY | O_CLOEXEC)), m_Progress(&progress) {
  if (m_Descriptor < 0) {
    Fail();
  }
  const std::size_t size = Size(m_Descriptor);
  if (size > LargeBytes) {
    progress.Show();
  }
  progress.Begin("Reading", size);
}

Input::Input(std::string_view text) : m_Name("the text"), m_Descriptor(-1), m_Progress(nullptr) {
  auto* const begin = const_cast<char*>(text.data()); // NOLINT(cppcoreguidelines-pro-type-const-cast): never written
  setg(begin, begin, begin + text.size());
}

Input::~Input() {
  if (m_Descriptor > STDERR_FILENO) {
    close(m_Descriptor);
  }
}

void Input::Fail() const {
  throw Failure(Failure::Kind::Input, "cannot read " + m_Name + ": " + std::generic_category().message(errno));
}

/// Moves a position past some characters. A character beyond ASCII is one column, whatever its bytes.
void Input::Pass(Position& position, const char* begin, const char* end) {
  for (; begin != end; ++begin) {
    if (position.ends_line) {
      ++position.line;
      position.column = 0;
    }
    position.ends_line = *begin == '\n';
    if ((static_cast<unsigned char>(*begin) & 0xc0U) != 0x80U) {
      ++position.column;
    }
  }
}

Input::Position Input::Where() const {
  Position position = m_BeforeBuffer;
  Pass(position, eback(), gptr());
  return position;
}

Input::int_type Input::underflow() {
  if (m_Progress == nullptr) {
    return traits_type::eof();
  }
  Pass(m_BeforeBuffer, eback(), egptr());
  setg(m_Buffer.data(), m_Buffer.data(), m_Buffer.data());
  ssize_t count = 0;
  do {
    count = read(m_Descriptor, m_Buffer.data(), m_Buffer.size());
  } while (count < 0 && errno == EINTR);
  if (count < 0) {
    Fail();
  }
  if (count == 0) {
    return traits_type::eof();
  }
  m_Bytes += static_cast<std::size_t>(count);
  if (m_Bytes > LargeBytes) {
    m_Progress->Show();
  }
  m_Progress->Advance(static_cast<std::uint64_t>(count));
  setg(m_Buffer.data(), m_Buffer.data(), m_Buffer.data() + count);
  return traits_type::to_int_type(m_Buffer.front());
}

} // namespace AccessDirectory
