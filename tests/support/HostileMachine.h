#pragma once

#include <string>

namespace Testing {

/// A small disk of the test's own, mounted over a directory for this process alone and gone with the object.
class SmallDisk {
public:
  SmallDisk(std::string directory, unsigned kibibytes);
  ~SmallDisk();
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;

  /// Why the kernel refused to mount it; empty when it is there.
  const std::string& Refusal() const { return m_Refusal; }
  /// False when the kernel refuses, for instance while a file is open for writing.
  bool MakeReadOnly();

private:
  std::string m_Directory;
  std::string m_Refusal;
};

/// Lets one of SQLite's allocations fail. Created before SQLite is used in the process.
class FailingMemory {
public:
  FailingMemory();

  /// The `count`th allocation from here on fails, once; 0: none does.
  static void FailAt(int count);
  /// Whether that allocation came up.
  static bool Failed();
};

} // namespace Testing
