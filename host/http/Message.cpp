#include "host/http/Message.h"

namespace Host {

namespace {

unsigned char Lower(char character) noexcept {
  const auto byte = static_cast<unsigned char>(character);
  return byte >= 'A' && byte <= 'Z' ? static_cast<unsigned char>(byte + ('a' - 'A')) : byte;
}

} // namespace

bool EqualInSizeIgnoringCase(std::string_view left, std::string_view right) noexcept {
  for (std::size_t i = 0; i < left.size(); ++i) {
    if (left[i] != right[i] && Lower(left[i]) != Lower(right[i])) {
      return false;
    }
  }
  return true;
}

const std::string* Request::Find(std::string_view name) const noexcept {
  for (const auto& field : fields) {
    if (EqualIgnoringCase(field.name, name)) {
      return &field.value;
    }
  }
  return nullptr;
}

std::size_t Request::Count(std::string_view name) const noexcept {
  std::size_t count = 0;
  for (const auto& field : fields) {
    if (EqualIgnoringCase(field.name, name)) {
      ++count;
    }
  }
  return count;
}

} // namespace Host
