#pragma once

#include <cstdint>
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

/// Lets one allocation of the calling thread fail, whoever asks for it: the module, SQLite or the C library. Created
/// before SQLite is used in the process.
class FailingMemory {
public:
  FailingMemory();

  /// Whether allocations can be made to fail: under a sanitizer they are its own.
  static bool Available();
  /// The `count`th allocation from here on fails, once; 0: none does.
  static void FailAt(int count);
  /// Whether that allocation came up.
  static bool Failed();
};

/// What the process's clock tells, in seconds since 1970-01-01 00:00:00 UTC, and what its random source fills `count`
/// bytes with, or false; null restores the system's own.
void SetClock(std::int64_t (*clock)() noexcept);
void SetRandom(bool (*random)(unsigned char* buffer, unsigned count) noexcept);

} // namespace Testing
