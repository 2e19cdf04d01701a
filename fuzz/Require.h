#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

// What libFuzzer calls for each input; returns 0.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace Fuzz {

inline std::string_view Text(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

/// Takes a byte off the front; 0 when there is none. For what an input chooses beside its text.
inline unsigned Choice(std::string_view& text) {
  if (text.empty()) {
    return 0;
  }
  const auto byte = static_cast<unsigned char>(text.front());
  text.remove_prefix(1);
  return byte;
}

/// Ends the program, which keeps the input, when something does not hold.
inline void Require(bool holds, const char* what, std::string_view found = {}) {
  if (!holds) {
    (void)std::fprintf(stderr, "does not hold: %s: %.*s\n", what, static_cast<int>(found.size()), found.data());
    std::abort();
  }
}

} // namespace Fuzz
