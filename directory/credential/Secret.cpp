#include "directory/credential/Secret.h"

#include <cstring>
#include <utility>

namespace AccessDirectory {

Secret::Secret() {
  m_Text.reserve(MaximumBytes);
}

Secret::~Secret() {
  Clear();
}

Secret::Secret(Secret&& other) noexcept : m_Text(std::move(other.m_Text)) {}

bool Secret::Append(char byte) {
  if (m_Text.size() == MaximumBytes) {
    return false;
  }
  m_Text += byte;
  return true;
}

void Secret::RemoveLast() noexcept {
  // A character typed as several bytes of UTF-8 goes as a whole.
  while (!m_Text.empty()) {
    const bool continuation = (static_cast<unsigned char>(m_Text.back()) & 0xc0U) == 0x80U;
    m_Text.pop_back();
    if (!continuation) {
      return;
    }
  }
}

void Secret::Clear() noexcept {
  explicit_bzero(m_Text.data(), m_Text.capacity());
  m_Text.clear();
}

} // namespace AccessDirectory
