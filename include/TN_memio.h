#pragma once

#include <cstdlib>
#include <memory>

#include "TN_error.h"
#include "TN_platform.h"

namespace Tarn {

/// An owned byte buffer with a capacity and a length. Not thread-safe; not copied.
class TN_API ByteString {
public:
  ByteString() = default;
  /// Reserves `capacity` bytes. A failed allocation shows as a smaller `Capacity()`, not as an exception.
  explicit ByteString(unsigned capacity);
  ~ByteString() = default;
  ByteString(const ByteString&) = delete;
  ByteString& operator=(const ByteString&) = delete;

  /// Grows the buffer to at least `capacity` bytes, keeping its contents; never shrinks.
  /// RESULT_OK, or RESULT_ALLOC with the buffer unchanged.
  Result_t Capacity(unsigned capacity);
  unsigned Capacity() const noexcept { return m_Capacity; }

  /// Replaces the contents by `count` bytes, growing as needed. `bytes` may be null when `count` is 0.
  /// RESULT_OK, or RESULT_ALLOC with the buffer unchanged.
  Result_t Set(const byte_t* bytes, unsigned count);

  /// The bytes, null while nothing was ever reserved. Writers that fill the buffer in place then call `Length(count)`.
  byte_t* Data() noexcept { return m_Data.get(); }
  const byte_t* RoData() const noexcept { return m_Data.get(); }

  /// Number of bytes in use.
  unsigned Length() const noexcept { return m_Length; }
  /// Sets the number of bytes in use; RESULT_PARAM, and no change, beyond the capacity.
  Result_t Length(unsigned count);

private:
  struct Free {
    void operator()(byte_t* bytes) const noexcept { std::free(bytes); }
  };
  std::unique_ptr<byte_t, Free> m_Data;
  unsigned m_Capacity = 0;
  unsigned m_Length = 0;
};

} // namespace Tarn
