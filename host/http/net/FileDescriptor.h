#pragma once

#include <unistd.h>
#include <utility>

namespace Host {

/// Owns a descriptor of the system.
class FileDescriptor {
public:
  explicit FileDescriptor(int handle = -1) noexcept : m_Handle(handle) {}
  ~FileDescriptor() { Close(); }
  FileDescriptor(FileDescriptor&& other) noexcept : m_Handle(std::exchange(other.m_Handle, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    std::swap(m_Handle, other.m_Handle);
    return *this;
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;

  bool Valid() const noexcept { return m_Handle >= 0; }
  int Get() const noexcept { return m_Handle; }
  void Close() noexcept {
    if (m_Handle >= 0) {
      ::close(m_Handle);
    }
    m_Handle = -1;
  }

private:
  int m_Handle;
};

} // namespace Host
