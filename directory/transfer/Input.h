#pragma once

#include <array>
#include <streambuf>
#include <string>
#include <string_view>

#include "directory/Progress.h"

namespace AccessDirectory {

/// A text in memory, or a file, or standard input under the name "-", as a stream buffer that knows how far it was
/// read. Reading throws `Failure` when the system fails: a file that breaks off must not look complete.
class Input : public std::streambuf {
public:
  /// Opens it and begins the phase "Reading" of `progress`, which is shown for more than a mebibyte.
  Input(const std::string& name, Progress& progress);
  /// Reads `text`, which outlives it.
  explicit Input(std::string_view text);
  ~Input() override;
  Input(const Input&) = delete;
  Input& operator=(const Input&) = delete;

  /// Where the character stands that was read last, counted from 1.
  struct Position {
    std::size_t line = 1;
    std::size_t column = 0;
    bool ends_line = false;
  };
  Position Where() const;

protected:
  int_type underflow() override;

private:
  static void Pass(Position& position, const char* begin, const char* end);
  [[noreturn]] void Fail() const;

  static constexpr std::size_t BufferBytes = 65536;

  std::string m_Name; // as messages call it
  int m_Descriptor;
  Progress* m_Progress;
  std::size_t m_Bytes = 0; // read so far
  Position m_BeforeBuffer; // of the last character before m_Buffer
  std::array<char, BufferBytes> m_Buffer{};
};

} // namespace AccessDirectory
