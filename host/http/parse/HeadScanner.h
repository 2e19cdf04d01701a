#pragma once

#include <cstddef>
#include <string_view>

namespace Host {

/// Finds the end of a head in bytes that come piece by piece, looking at each once, and refuses the lines that readers
/// understand differently: one ended by LF without CR, a folded one, an empty one before the request line.
class HeadScanner {
public:
  enum class Result {
    More,     ///< the end is not in sight yet
    Complete, ///< the first `Size()` bytes are a head with its empty line
    Malformed
  };

  /// `bytes` are all that came since `Reset`, those of earlier calls included.
  Result Scan(std::string_view bytes) noexcept;
  void Reset() noexcept { *this = HeadScanner(); }

  std::size_t Size() const noexcept { return m_Position; }
  /// Whether the request line has been seen to its end.
  bool HasLine() const noexcept { return m_HasLine; }

private:
  std::size_t m_Position = 0; // where the search for LF goes on
  bool m_LineStart = false;   // the byte at m_Position follows a CRLF
  bool m_HasLine = false;
};

} // namespace Host
