#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <list>
#include <string>

#include "TN_platform.h"

namespace Tarn {

/// Ordered list of strings.
using StringList = std::list<std::string>;

// Text forms of bytes. All are stateless and thread-safe. The encoders write a NUL-terminated text into `buffer` and
// return it; when `length` (the buffer's size in bytes, terminator included) is too small they return null and leave
// an empty text.

/// Two lower-case hexadecimal digits a byte, first byte first, without separators.
TN_API char* bin2hex(const byte_t* bytes, unsigned count, char* buffer, unsigned length) noexcept;

/// The UUID text form (RFC 4122, section 3): lower-case digits in groups of 8-4-4-4-12 joined by hyphens, 36
/// characters. Null also when `count` is not 16.
TN_API char* bin2UUIDhex(const byte_t* bytes, unsigned count, char* buffer, unsigned length) noexcept;

/// Base64 with the standard alphabet and padding (RFC 4648, section 4).
TN_API char* base64encode(const byte_t* bytes, unsigned count, char* buffer, unsigned length) noexcept;

/// Size of the buffer that `base64encode` needs for `count` bytes, terminator included.
constexpr std::size_t base64_buffer_size(std::size_t count) noexcept {
  return ((count + 2) / 3) * 4 + 1;
}

/// Reads hexadecimal digits of either case, nothing else. Returns 0 and stores the byte count; non-zero, with a count
/// of 0, on an odd number of digits, another character or more than `capacity` bytes.
TN_API int hex2bin(const char* text, byte_t* buffer, unsigned capacity, unsigned* count) noexcept;

/// Reads base64 (RFC 4648, section 4): padding is required, white space and other characters are refused, bits beyond
/// the last byte are ignored. Returns 0 and stores the byte count; non-zero, with a count of 0, on malformed text or
/// when the bytes do not fit `capacity`. An empty text is 0 bytes.
TN_API int base64decode(const char* text, byte_t* buffer, unsigned capacity, unsigned* count) noexcept;

/// Whether two byte ranges, or two texts, are the same. Takes a time that depends on the lengths alone, so that it may
/// compare digests and keys. Thread-safe.
TN_API bool EqualConstantTime(const byte_t* left, const byte_t* right, std::size_t count) noexcept;
inline bool EqualConstantTime(const std::string& left, const std::string& right) noexcept {
  return left.size() == right.size() && EqualConstantTime(reinterpret_cast<const byte_t*>(left.data()),
                                                          reinterpret_cast<const byte_t*>(right.data()), left.size());
}

/// An object with a fixed binary form.
class TN_API IArchive {
public:
  virtual ~IArchive();
  /// Whether a value was set.
  virtual bool HasValue() const = 0;
  /// Number of bytes that `Archive` writes.
  virtual unsigned ArchiveLength() const = 0;
  /// Writes the binary form into `buffer`; false, with nothing written, when `capacity` is too small.
  virtual bool Archive(byte_t* buffer, unsigned capacity) const = 0;
  /// Reads what `Archive` wrote; false, with the object unchanged, unless `count` is `ArchiveLength()`.
  virtual bool Unarchive(const byte_t* bytes, unsigned count) = 0;

protected:
  IArchive() = default;
  IArchive(const IArchive&) = default;
  IArchive& operator=(const IArchive&) = default;
};

/// A binary identifier of SIZE bytes. Default-constructed it has no value and its bytes are zero. Equality and order
/// look at the bytes alone. Distinct objects may be used from different threads.
template <unsigned SIZE> class Identifier : public IArchive {
public:
  bool m_HasValue = false;   ///< whether a value was set
  byte_t m_Value[SIZE] = {}; ///< the bytes

  Identifier() = default;

  /// The SIZE bytes.
  const byte_t* Value() const noexcept { return m_Value; }
  /// Copies SIZE bytes in.
  void Set(const byte_t* value) noexcept {
    std::copy_n(value, SIZE, m_Value);
    m_HasValue = true;
  }
  constexpr unsigned Size() const noexcept { return SIZE; }

  bool HasValue() const noexcept override { return m_HasValue; }
  unsigned ArchiveLength() const noexcept override { return SIZE; }
  bool Archive(byte_t* buffer, unsigned capacity) const noexcept override {
    if (capacity < SIZE) {
      return false;
    }
    std::copy_n(m_Value, SIZE, buffer);
    return true;
  }
  bool Unarchive(const byte_t* bytes, unsigned count) noexcept override {
    if (count != SIZE) {
      return false;
    }
    Set(bytes);
    return true;
  }

  /// `bin2hex` of the bytes into `buffer` of `length` bytes.
  char* EncodeHex(char* buffer, unsigned length) const noexcept { return bin2hex(m_Value, SIZE, buffer, length); }
  /// `base64encode` of the bytes into `buffer` of `length` bytes.
  char* EncodeBase64(char* buffer, unsigned length) const noexcept {
    return base64encode(m_Value, SIZE, buffer, length);
  }
  /// True, with the value set, only when `text` is exactly SIZE bytes in hexadecimal; otherwise there is no value.
  bool DecodeHex(const char* text) noexcept { return Accept(&hex2bin, text); }
  /// True, with the value set, only when `text` is exactly SIZE bytes in base64; otherwise there is no value.
  bool DecodeBase64(const char* text) noexcept { return Accept(&base64decode, text); }

  friend bool operator==(const Identifier& left, const Identifier& right) noexcept {
    return EqualConstantTime(left.m_Value, right.m_Value, SIZE);
  }
  friend bool operator!=(const Identifier& left, const Identifier& right) noexcept { return !(left == right); }
  friend bool operator<(const Identifier& left, const Identifier& right) noexcept {
    return std::memcmp(left.m_Value, right.m_Value, SIZE) < 0;
  }

private:
  using Decoder = int (*)(const char*, byte_t*, unsigned, unsigned*) noexcept;

  bool Accept(Decoder decode, const char* text) noexcept {
    byte_t decoded[SIZE] = {};
    unsigned count = 0;
    m_HasValue = decode(text, decoded, SIZE, &count) == 0 && count == SIZE;
    std::fill_n(m_Value, SIZE, byte_t{0});
    if (m_HasValue) {
      std::copy_n(decoded, SIZE, m_Value);
    }
    return m_HasValue;
  }
};

constexpr unsigned UUID_Length = 16;
constexpr unsigned SymmetricKey_Length = 16;

/// A 16-byte identifier whose text is the UUID form (RFC 4122).
class UUID : public Identifier<UUID_Length> {
public:
  /// `bin2UUIDhex` of the bytes: 36 characters and a terminator.
  char* EncodeHex(char* buffer, unsigned length) const noexcept {
    return bin2UUIDhex(Value(), UUID_Length, buffer, length);
  }
  /// True, with the value set, only when `text` is the 36-character UUID form, digits of either case; otherwise there
  /// is no value.
  TN_API bool DecodeHex(const char* text) noexcept;
};

/// A 16-byte secret or salt.
class SymmetricKey : public Identifier<SymmetricKey_Length> {};

/// Fills the identifier with fresh bytes of the system's cryptographic random source. A source that fails ends the
/// process: a predictable key is never handed out. Thread-safe.
TN_API void GenRandomValue(UUID& id) noexcept;
TN_API void GenRandomValue(SymmetricKey& key) noexcept;

/// Length of the text of a Timestamp, without its terminator.
constexpr unsigned DateTimeLen = 25;

/// A point in time, in whole seconds; default-constructed, the time of construction.
class TN_API Timestamp {
public:
  Timestamp() noexcept;
  /// `seconds` since 1970-01-01 00:00:00 UTC.
  explicit Timestamp(std::int64_t seconds) noexcept : m_Seconds(seconds) {}

  /// Whole seconds since 1970-01-01 00:00:00 UTC.
  std::int64_t GetCTime() const noexcept { return m_Seconds; }
  /// Writes "YYYY-MM-DDThh:mm:ss+00:00" (ISO 8601, UTC; years 0000 to 9999) into `buffer` and returns it; null, with
  /// an empty text, when `length` is less than DateTimeLen + 1 or the year does not fit.
  char* EncodeString(char* buffer, unsigned length) const noexcept;

private:
  std::int64_t m_Seconds;
};

/// True when `path` names an existing regular file, links followed.
TN_API bool PathIsFile(const std::string& path);

/// Blocks the calling thread for `milliseconds`, also when signals arrive meanwhile.
TN_API void sleep_ms(unsigned milliseconds) noexcept;

} // namespace Tarn
