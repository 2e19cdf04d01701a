#pragma once

#include <string>
#include <string_view>

namespace Tool {

/// Bytes on their way to standard output or into a new file. All operations throw `Failure` when the system fails.
class Output {
public:
  /// Standard output.
  Output();
  /// A file that must not exist yet, for its owner alone, which messages call `name`.
  Output(const std::string& file, const std::string& name);
  ~Output();
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  void Write(std::string_view text);
  /// Writes what is left; a file is on the disk after that.
  void Finish();

private:
  void Flush();
  [[noreturn]] void Fail() const;

  std::string m_Name; // as messages call it
  int m_Descriptor;
  std::string m_Buffer;
};

} // namespace Tool
