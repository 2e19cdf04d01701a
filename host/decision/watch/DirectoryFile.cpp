#include "host/decision/watch/DirectoryFile.h"

#include <cerrno>
#include <system_error>

#include "directory/Failure.h"
#include "directory/text/Text.h"

namespace Host {

DirectoryFile::DirectoryFile(std::string path, std::function<void()> on_gone)
    : m_Path(std::move(path)), m_OnGone(std::move(on_gone)) {
  struct stat status {};
  const bool is_there = stat(m_Path.c_str(), &status) == 0;
  if (!is_there || !S_ISREG(status.st_mode)) {
    throw AccessDirectory::Failure(AccessDirectory::Failure::Kind::System,
                                   "the database " + AccessDirectory::Quoted(m_Path) +
                                       (is_there ? " is not a file" : ": " + std::system_category().message(errno)));
  }
  m_Device = status.st_dev;
  m_Inode = status.st_ino;
}

DirectoryFile::State DirectoryFile::Look(struct stat& status) {
  if (IsGone()) {
    return State::Gone;
  }
  if (stat(m_Path.c_str(), &status) != 0) {
    if (errno != ENOENT && errno != ENOTDIR) {
      return State::Unknown;
    }
    SetGone();
    return State::Gone;
  }
  if (status.st_dev != m_Device || status.st_ino != m_Inode) {
    SetGone();
    return State::Gone;
  }
  return State::There;
}

void DirectoryFile::SetGone() {
  if (!m_IsGone.exchange(true, std::memory_order_acq_rel) && m_OnGone) {
    m_OnGone();
  }
}

} // namespace Host
