#include "directory/file/NewFile.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "directory/Failure.h"
#include "directory/text/Text.h"

namespace AccessDirectory {

namespace {

// More than any command makes at once; the removal of one that finds no place is left to its destructor.
std::array<std::atomic<const NewFile*>, 4> s_unfinished{};

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

/// Holds signals back for a scope: a handler that removes unfinished files must know of each that there is.
class HeldSignals {
public:
  HeldSignals() noexcept {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &m_Before);
  }
  ~HeldSignals() { pthread_sigmask(SIG_SETMASK, &m_Before, nullptr); }
  HeldSignals(const HeldSignals&) = delete;
  HeldSignals& operator=(const HeldSignals&) = delete;

private:
  sigset_t m_Before{};
};

} // namespace

NewFile::NewFile(std::string name, Existing existing, std::string hint)
    : m_Name(std::move(name)), m_Directory(m_Name + ".new-XXXXXX"), m_Hint(std::move(hint)), m_Existing(existing) {
  std::error_code unknown; // mkdtemp will say why
  const auto status = std::filesystem::symlink_status(m_Name, unknown);
  if (std::filesystem::exists(status) && existing == Existing::Keep) {
    ThrowExists();
  }
  if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status)) {
    throw Failure(Failure::Kind::Input, Quoted(m_Name) + " is not a regular file: it cannot be replaced");
  }
  const HeldSignals held;
  if (mkdtemp(m_Directory.data()) == nullptr) {
    const std::string reason = std::generic_category().message(errno);
    throw Failure(Failure::Kind::System, "cannot create " + Quoted(m_Name) + " in the directory " +
                                             Quoted(std::filesystem::absolute(m_Name, unknown).parent_path().string()) +
                                             ": " + reason);
  }
  const std::string work = m_Directory + "/new";
  m_Work = {work, work + "-journal", work + "-wal", work + "-shm"};
  for (auto& place : s_unfinished) {
    const NewFile* nobody = nullptr;
    if (place.compare_exchange_strong(nobody, this)) {
      break;
    }
  }
}

NewFile::~NewFile() {
  const HeldSignals held;
  for (auto& place : s_unfinished) {
    const NewFile* mine = this;
    place.compare_exchange_strong(mine, nullptr);
  }
  Remove();
}

void NewFile::Remove() const noexcept {
  for (const std::string& file : m_Work) {
    unlink(file.c_str());
  }
  rmdir(m_Directory.c_str());
}

void NewFile::RemoveUnfinished() noexcept {
  for (const auto& place : s_unfinished) {
    if (const NewFile* const file = place; file != nullptr) {
      file->Remove();
    }
  }
}

void NewFile::GiveTo(uid_t user, gid_t group) const {
  const char* const file = WorkName().c_str();
  // By name, in a directory that nobody else may enter: closing a descriptor of a database would drop SQLite's locks.
  if (chmod(file, S_IRUSR | S_IWUSR) != 0 || lchown(file, user, group) != 0) {
    throw Failure(Failure::Kind::System,
                  "cannot change the owner of " + Quoted(m_Name) + ": " + std::generic_category().message(errno));
  }
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
    return std::rename(WorkName().c_str(), m_Name.c_str()) == 0;
  }
  // A file system without hard links: the check and the step are one with renameat2 too.
  return link(WorkName().c_str(), m_Name.c_str()) == 0 ||
         (errno != EEXIST && renameat2(AT_FDCWD, WorkName().c_str(), AT_FDCWD, m_Name.c_str(), RENAME_NOREPLACE) == 0);
}

void NewFile::ThrowExists() const {
  throw Failure(Failure::Kind::Refused, Quoted(m_Name) + " exists already; " + m_Hint);
}

} // namespace AccessDirectory
