#include "host/caller/RequestId.h"

#include <algorithm>
#include <array>

#include "TN_util.h"

namespace Host {

namespace {

constexpr std::size_t MaximumBytes = 64;

} // namespace

bool IsRequestId(const std::string& text) noexcept {
  return !text.empty() && text.size() <= MaximumBytes && std::all_of(text.begin(), text.end(), [](char byte) {
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || (byte >= '0' && byte <= '9') ||
           byte == '.' || byte == '_' || byte == '-';
  });
}

std::string NewRequestId() {
  // Unique rather than secret: a random beginning for the thread, and a count behind it.
  thread_local Tarn::UUID id;
  thread_local std::uint64_t count = 0;
  if (count == 0) {
    Tarn::GenRandomValue(id);
  }
  Tarn::byte_t bytes[Tarn::UUID_Length];
  std::copy_n(id.Value(), Tarn::UUID_Length, bytes);
  const std::uint64_t number = ++count;
  for (unsigned i = 0; i < sizeof(number); ++i) {
    bytes[Tarn::UUID_Length - 1 - i] ^= static_cast<Tarn::byte_t>(number >> (8 * i));
  }
  std::array<char, 2 * Tarn::UUID_Length + 1> text{};
  return Tarn::bin2hex(bytes, Tarn::UUID_Length, text.data(), text.size());
}

} // namespace Host
