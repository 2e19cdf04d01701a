#pragma once

#include <atomic>
#include <functional>
#include <string>

#include <sys/stat.h>

namespace Host {

/// The database file as the process opened it. Once another file stands in its place, or none, it is gone for good:
/// what the connections read is nobody's directory any more. Thread-safe.
///
/// The file is only looked at: opening it past SQLite and closing it again would drop SQLite's locks on it.
class DirectoryFile {
public:
  /// `on_gone` is called once, on the thread that notices. Throws `AccessDirectory::Failure` (System) when there is no
  /// such file.
  DirectoryFile(std::string path, std::function<void()> on_gone);

  enum class State {
    There,
    Gone,
    Unknown ///< for the moment it cannot be looked at
  };
  /// Looks at the file; `status` is filled when it is there.
  State Look(struct stat& status);
  bool IsGone() const noexcept { return m_IsGone.load(std::memory_order_acquire); }
  /// Says that the file is another one although it looks the same.
  void SetGone();

  const std::string& Path() const noexcept { return m_Path; }

private:
  std::string m_Path;
  std::function<void()> m_OnGone;
  dev_t m_Device = 0;
  ino_t m_Inode = 0;
  std::atomic<bool> m_IsGone{false};
};

} // namespace Host
