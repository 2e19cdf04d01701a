#include "host/http/parse/HeadScanner.h"

namespace Host {

HeadScanner::Result HeadScanner::Scan(std::string_view bytes) noexcept {
  while (m_Position < bytes.size()) {
    if (m_LineStart && (bytes[m_Position] == ' ' || bytes[m_Position] == '\t')) {
      return Result::Malformed;
    }
    m_LineStart = false;
    const auto feed = bytes.find('\n', m_Position);
    if (feed == std::string_view::npos) {
      m_Position = bytes.size();
      return Result::More;
    }
    if (feed < 2 || bytes[feed - 1] != '\r') {
      return Result::Malformed;
    }
    m_Position = feed + 1;
    if (bytes[feed - 2] == '\n') {
      return Result::Complete;
    }
    m_HasLine = true;
    m_LineStart = true;
  }
  return Result::More;
}

} // namespace Host
