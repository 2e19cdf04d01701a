#pragma once

#include <memory>
#include <string>

#include "TN_platform.h"

struct evp_md_ctx_st;

namespace Perenna {

using Tarn::byte_t;

constexpr unsigned SHA256_Length = 32;

/// A message digest: any number of `Update`s, one `Finalize`, then `StringValue`. `Reset` starts anew.
/// One object is used by one thread at a time.
class TN_API IDigest {
public:
  virtual ~IDigest();
  virtual void Reset() = 0;
  virtual void Update(const byte_t* bytes, unsigned count) = 0;
  virtual void Finalize() = 0;
  virtual const char* StringValue(char* buffer, unsigned length, bool hexadecimal) const = 0;
};

/// SHA-256 (FIPS 180-4). Calls out of order, and a failure of the cryptographic library, end the process: a digest
/// that is not what it says is never handed out.
class TN_API SHA256 : public IDigest {
public:
  SHA256();
  ~SHA256() override;
  SHA256(const SHA256&) = delete;
  SHA256& operator=(const SHA256&) = delete;

  void Reset() override;
  void Update(const byte_t* bytes, unsigned count) override;
  /// Feeds the string's bytes, NUL included, without a terminator.
  void Update(const std::string& text);
  void Finalize() override;

  /// Writes the finalized digest into `buffer` of `length` bytes and returns it: 64 lower-case hexadecimal digits when
  /// `hexadecimal`, else 44 characters of base64. Null when it does not fit.
  const char* StringValue(char* buffer, unsigned length, bool hexadecimal) const override;

private:
  struct FreeContext {
    void operator()(evp_md_ctx_st* context) const noexcept;
  };
  std::unique_ptr<evp_md_ctx_st, FreeContext> m_Context;
  bool m_Finalized = false;
  byte_t m_Value[SHA256_Length] = {};
};

} // namespace Perenna
