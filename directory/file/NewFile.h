#pragma once

#include <array>
#include <string>

#include <sys/types.h>

namespace AccessDirectory {

/// A file that is made in a directory of its own beside its place, and gets its name in one step at the end: nobody
/// ever sees half of it, and nobody else can put a file or a link where it is made. What was not published is removed.
class NewFile {
public:
  /// What becomes of a regular file that has the name already.
  enum class Existing { Keep, Replace };

  /// `hint` is what the refusal to touch an existing file adds. Throws `Failure` when it is to be kept, or is no
  /// regular file, or when nothing can be made there.
  NewFile(std::string name, Existing existing, std::string hint);
  ~NewFile();
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  /// The name under which to make it, in a directory that only the owner may enter.
  const std::string& WorkName() const noexcept { return m_Work.front(); }

  /// Makes another the owner of the file, which must have been made, and lets him alone read and write it. Throws
  /// `Failure` when the process may not.
  void GiveTo(uid_t user, gid_t group) const;

  /// Gives the file its name, unless a file that is to be kept has appeared there. Throws `Failure`.
  void Publish() const;

  /// Removes what the objects of this process have not published yet. Async-signal-safe, for a handler that ends the
  /// process after it, in a program that makes such files in one thread.
  static void RemoveUnfinished() noexcept;

private:
  [[noreturn]] void ThrowExists() const;
  bool Rename() const;
  void Remove() const noexcept;

  std::string m_Name;
  std::string m_Directory;
  std::array<std::string, 4> m_Work; // the file, and what SQLite may leave beside it
  std::string m_Hint;
  Existing m_Existing;
};

} // namespace AccessDirectory
