#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include <openssl/evp.h>

#include "TN_util.h"

namespace Host {

/// 128 bits under a secret key: equal for equal inputs, and nobody without the key finds two inputs that collide or
/// learns an input from it.
struct Digest {
  std::uint64_t first = 0;
  std::uint64_t second = 0;
  friend bool operator==(const Digest& left, const Digest& right) noexcept {
    return left.first == right.first && left.second == right.second;
  }
};

struct DigestHash {
  std::size_t operator()(const Digest& digest) const noexcept { return digest.first; }
};

/// Makes digests of lists of texts (SipHash-2-4 with 128 bits of result). A thread has its own object; objects with one
/// key make the same digests.
class KeyedDigest {
public:
  explicit KeyedDigest(const Tarn::SymmetricKey& key);
  ~KeyedDigest();
  KeyedDigest(const KeyedDigest&) = delete;
  KeyedDigest& operator=(const KeyedDigest&) = delete;

  /// Begins a digest; `purpose` keeps digests of different things apart.
  KeyedDigest& Begin(char purpose);
  /// Adds a text, its length included.
  KeyedDigest& Add(std::string_view text);
  Digest Finish();

private:
  struct Free {
    void operator()(EVP_MAC_CTX* context) const noexcept { EVP_MAC_CTX_free(context); }
  };

  void Append(const void* bytes, std::size_t count);
  void Grow(std::size_t count);

  Tarn::SymmetricKey m_Key;
  std::unique_ptr<EVP_MAC_CTX, Free> m_Context;
  // Texts are put together first, since every call of OpenSSL costs more than the few bytes that it is given.
  std::vector<unsigned char> m_Input;
  std::size_t m_Used = 0;
};

} // namespace Host
