#include "TN_util.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <ctime>

#include <openssl/rand.h>
#include <sys/stat.h>
#include <sys/types.h>

#include "TN_memio.h"

namespace Tarn {

namespace {

template <unsigned SIZE> void FillRandom(Identifier<SIZE>& id) noexcept {
  byte_t value[SIZE];
  TN_REQUIRE(RAND_bytes(value, SIZE) == 1, "the random source works");
  id.Set(value);
}

} // namespace

void GenRandomValue(UUID& id) noexcept {
  FillRandom(id);
}

void GenRandomValue(SymmetricKey& key) noexcept {
  FillRandom(key);
}

Timestamp::Timestamp() noexcept : m_Seconds(std::time(nullptr)) {}

char* Timestamp::EncodeString(char* buffer, unsigned length) const noexcept {
  if (length == 0) {
    return nullptr;
  }
  *buffer = '\0';
  std::tm parts{};
  const std::time_t seconds = m_Seconds;
  if (length <= DateTimeLen || gmtime_r(&seconds, &parts) == nullptr || parts.tm_year < -1900 ||
      parts.tm_year > 9999 - 1900) {
    return nullptr;
  }
  // Not strftime: its %Y does not pad, its %z leaves out the colon.
  const int count = std::snprintf(buffer, length, "%04d-%02d-%02dT%02d:%02d:%02d+00:00", parts.tm_year + 1900,
                                  parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
  TN_REQUIRE(count == static_cast<int>(DateTimeLen), "a time stamp has its length");
  return buffer;
}

bool PathIsFile(const std::string& path) {
  struct stat status {};
  return path.find('\0') == std::string::npos && stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

void sleep_ms(unsigned milliseconds) noexcept {
  std::timespec rest{static_cast<std::time_t>(milliseconds / 1000), static_cast<long>(milliseconds % 1000) * 1000000L};
  while (nanosleep(&rest, &rest) != 0 && errno == EINTR) { // a signal must not shorten the wait for a lock
  }
}

ByteString::ByteString(unsigned capacity) {
  static_cast<void>(Capacity(capacity)); // a failure shows in Capacity()
}

Result_t ByteString::Capacity(unsigned capacity) {
  if (capacity <= m_Capacity) {
    return RESULT_OK;
  }
  auto* grown = static_cast<byte_t*>(std::realloc(m_Data.get(), capacity));
  if (grown == nullptr) {
    return RESULT_ALLOC;
  }
  static_cast<void>(m_Data.release()); // realloc has taken it
  m_Data.reset(grown);
  m_Capacity = capacity;
  return RESULT_OK;
}

Result_t ByteString::Set(const byte_t* bytes, unsigned count) {
  if (Result_t grown = Capacity(count); grown.Failed()) {
    return grown;
  }
  if (count > 0) {
    std::memmove(m_Data.get(), bytes, count);
  }
  m_Length = count;
  return RESULT_OK;
}

Result_t ByteString::Length(unsigned count) {
  if (count > m_Capacity) {
    return RESULT_PARAM;
  }
  m_Length = count;
  return RESULT_OK;
}

} // namespace Tarn
