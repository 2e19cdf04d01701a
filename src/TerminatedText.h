#pragma once

#include <string>

namespace LocalAccessManager {

/// A text as SQLite and the C library take it: up to its first NUL.
inline std::string Terminated(const std::string& text) {
  return text.substr(0, text.find('\0'));
}

/// Whether a text would be taken for another, shorter one.
inline bool EndsEarly(const std::string& text) {
  return text.find('\0') != std::string::npos;
}

/// Whether nothing of a text would be stored.
inline bool IsEmptyTerminated(const std::string& text) {
  return text.empty() || text.front() == '\0';
}

} // namespace LocalAccessManager
