#pragma once

#include <string>

namespace AccessDirectory {

/// A file that is made under another name in the same directory, and gets its own name in one step at the end: nobody
/// ever sees half of it. What was not published is removed.
class NewFile {
public:
  /// What becomes of a regular file that has the name already.
  enum class Existing { Keep, Replace };

  /// `hint` is what the refusal to touch an existing file adds. Throws `Failure` when it is to be kept, or is no
  /// regular file.
  NewFile(std::string name, Existing existing, std::string hint);
  ~NewFile();
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  /// The name under which to make it.
  const std::string& WorkName() const noexcept { return m_Work; }

  /// Gives the file its name, unless a file that is to be kept has appeared there. Throws `Failure`.
  void Publish() const;

private:
  [[noreturn]] void ThrowExists() const;
  bool Rename() const;

  std::string m_Name;
  std::string m_Work;
  std::string m_Hint;
  Existing m_Existing;
};

} // namespace AccessDirectory
