#include "TN_util.h"

#include <array>

#include <openssl/crypto.h>

namespace Tarn {

namespace {

constexpr char HexDigits[] = "0123456789abcdef";
constexpr char Base64Digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr int NotADigit = -1;

constexpr std::size_t UuidTextLength = 36;

constexpr bool HyphenBeforeByte(unsigned index) {
  return index == 4 || index == 6 || index == 8 || index == 10;
}

char* RefuseBuffer(char* buffer, unsigned length) noexcept {
  if (buffer != nullptr && length > 0) {
    *buffer = '\0';
  }
  return nullptr;
}

char* PutHex(char* out, byte_t byte) noexcept {
  *out++ = HexDigits[byte >> 4U];
  *out++ = HexDigits[byte & 0x0fU];
  return out;
}

int HexValue(char digit) noexcept {
  if (digit >= '0' && digit <= '9') {
    return digit - '0';
  }
  if (digit >= 'a' && digit <= 'f') {
    return digit - 'a' + 10;
  }
  if (digit >= 'A' && digit <= 'F') {
    return digit - 'A' + 10;
  }
  return NotADigit;
}

constexpr std::array<int, 256> MakeBase64Values() {
  std::array<int, 256> values{};
  for (auto& value : values) {
    value = NotADigit;
  }
  for (int i = 0; i < 64; ++i) {
    values[static_cast<unsigned char>(Base64Digits[i])] = i;
  }
  return values;
}

constexpr auto Base64Values = MakeBase64Values();

} // namespace

char* bin2hex(const byte_t* bytes, unsigned count, char* buffer, unsigned length) noexcept {
  if (static_cast<std::size_t>(count) * 2 + 1 > length) {
    return RefuseBuffer(buffer, length);
  }
  char* out = buffer;
  for (unsigned i = 0; i < count; ++i) {
    out = PutHex(out, bytes[i]);
  }
  *out = '\0';
  return buffer;
}

char* bin2UUIDhex(const byte_t* bytes, unsigned count, char* buffer, unsigned length) noexcept {
  if (count != UUID_Length || length < UuidTextLength + 1) {
    return RefuseBuffer(buffer, length);
  }
  char* out = buffer;
  for (unsigned i = 0; i < UUID_Length; ++i) {
    if (HyphenBeforeByte(i)) {
      *out++ = '-';
    }
    out = PutHex(out, bytes[i]);
  }
  *out = '\0';
  return buffer;
}

char* base64encode(const byte_t* bytes, unsigned count, char* buffer, unsigned length) noexcept {
  if (base64_buffer_size(count) > length) {
    return RefuseBuffer(buffer, length);
  }
  char* out = buffer;
  for (unsigned i = 0; i < count; i += 3) {
    const unsigned available = std::min(count - i, 3U);
    const unsigned second = available > 1 ? bytes[i + 1] : 0U;
    const unsigned third = available > 2 ? bytes[i + 2] : 0U;
    const unsigned group = (static_cast<unsigned>(bytes[i]) << 16U) | (second << 8U) | third;
    *out++ = Base64Digits[(group >> 18U) & 0x3fU];
    *out++ = Base64Digits[(group >> 12U) & 0x3fU];
    *out++ = available > 1 ? Base64Digits[(group >> 6U) & 0x3fU] : '=';
    *out++ = available > 2 ? Base64Digits[group & 0x3fU] : '=';
  }
  *out = '\0';
  return buffer;
}

int hex2bin(const char* text, byte_t* buffer, unsigned capacity, unsigned* count) noexcept {
  *count = 0;
  unsigned decoded = 0;
  for (; *text != '\0'; text += 2) {
    const int high = HexValue(text[0]);
    const int low = high == NotADigit ? NotADigit : HexValue(text[1]);
    if (low == NotADigit || decoded == capacity) {
      return -1;
    }
    buffer[decoded++] = static_cast<byte_t>(high * 16 + low);
  }
  *count = decoded;
  return 0;
}

int base64decode(const char* text, byte_t* buffer, unsigned capacity, unsigned* count) noexcept {
  *count = 0;
  unsigned decoded = 0;
  bool ended = false;
  while (*text != '\0') {
    if (ended) {
      return -1; // something follows the padding
    }
    unsigned group = 0;
    unsigned digits = 0;
    for (; digits < 4; ++digits, ++text) {
      const int value = Base64Values[static_cast<unsigned char>(*text)];
      if (value == NotADigit) {
        break; // padding, the terminator or a foreign character
      }
      group = (group << 6U) | static_cast<unsigned>(value);
    }
    const unsigned padding = 4 - digits;
    if (padding > 2) {
      return -1;
    }
    for (unsigned i = 0; i < padding; ++i, ++text) {
      if (*text != '=') {
        return -1;
      }
    }
    group <<= 6U * padding;
    const unsigned bytes = 3 - padding;
    if (capacity - decoded < bytes) {
      return -1;
    }
    for (unsigned i = 0; i < bytes; ++i) {
      buffer[decoded++] = static_cast<byte_t>((group >> (16U - 8U * i)) & 0xffU);
    }
    ended = padding > 0;
  }
  *count = decoded;
  return 0;
}

bool EqualConstantTime(const byte_t* left, const byte_t* right, std::size_t count) noexcept {
  return CRYPTO_memcmp(left, right, count) == 0;
}

IArchive::~IArchive() = default;

bool UUID::DecodeHex(const char* text) noexcept {
  *this = UUID();
  byte_t value[UUID_Length];
  for (unsigned i = 0; i < UUID_Length; ++i) {
    if (HyphenBeforeByte(i) && *text++ != '-') {
      return false;
    }
    const int high = HexValue(text[0]);
    const int low = high == NotADigit ? NotADigit : HexValue(text[1]);
    if (low == NotADigit) {
      return false;
    }
    value[i] = static_cast<byte_t>(high * 16 + low);
    text += 2;
  }
  if (*text != '\0') {
    return false;
  }
  Set(value);
  return true;
}

} // namespace Tarn
