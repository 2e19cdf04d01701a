#include "directory/file/NewFile.h"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

#include "directory/Failure.h"
#include "directory/Text.h"

namespace AccessDirectory {

namespace {

/// Makes a new name in a directory survive a power failure. Not examined: some file systems cannot, and none loses
/// what it had before.
void SyncDirectoryOf(const std::string& file) {
  const std::string directory = std::filesystem::path(file).parent_path().string();
  const int descriptor = open(directory.empty() ? "." : directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor >= 0) {
    fsync(descriptor);
    close(descriptor);
  }
}

} // namespace

NewFile::NewFile(std::string name, Existing existing, std::string hint)
    : m_Name(std::move(name)), m_Work(m_Name + ".new-" + std::to_string(getpid())), m_Hint(std::move(hint)),
      m_Existing(existing) {
  const auto status = std::filesystem::symlink_status(m_Name);
  if (std::filesystem::exists(status) && existing == Existing::Keep) {
    ThrowExists();
  }
  if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status)) {
    throw Failure(Failure::Kind::Input, Quoted(m_Name) + " is not a regular file: it cannot be replaced");
  }
  unlink(m_Work.c_str()); // a leftover of an earlier process of this number
}

NewFile::~NewFile() {
  unlink(m_Work.c_str());
  unlink((m_Work + "-journal").c_str());
}

void NewFile::Publish() const {
  if (!Rename()) {
    if (errno == EEXIST) {
      ThrowExists();
    }
    throw Failure(Failure::Kind::System,
                  "cannot create " + Quoted(m_Name) + ": " + std::generic_category().message(errno));
  }
  SyncDirectoryOf(m_Name);
}

bool NewFile::Rename() const {
  if (m_Existing == Existing::Replace) {
    return std::rename(m_Work.c_str(), m_Name.c_str()) == 0;
  }
  // A file system without hard links: the check and the step are one with renameat2 too.
  return link(m_Work.c_str(), m_Name.c_str()) == 0 ||
         (errno != EEXIST && renameat2(AT_FDCWD, m_Work.c_str(), AT_FDCWD, m_Name.c_str(), RENAME_NOREPLACE) == 0);
}

void NewFile::ThrowExists() const {
  throw Failure(Failure::Kind::Refused, Quoted(m_Name) + " exists already; " + m_Hint);
}

} // namespace AccessDirectory
