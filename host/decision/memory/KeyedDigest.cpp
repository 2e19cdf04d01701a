#include "host/decision/memory/KeyedDigest.h"

#include <cstring>

#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/params.h>

#include "directory/Failure.h"

namespace Host {

namespace {

void Require(bool done) {
  if (!done) { // out of memory, or an OpenSSL without its default provider
    throw AccessDirectory::Failure(AccessDirectory::Failure::Kind::System, "OpenSSL computes no SipHash");
  }
}

constexpr std::size_t UsualBytes = 1024; // of what a digest is made of

} // namespace

KeyedDigest::KeyedDigest(const Tarn::SymmetricKey& key) : m_Key(key), m_Input(UsualBytes) {
  EVP_MAC* const algorithm = EVP_MAC_fetch(nullptr, "SIPHASH", nullptr);
  Require(algorithm != nullptr);
  m_Context.reset(EVP_MAC_CTX_new(algorithm));
  EVP_MAC_free(algorithm); // the context holds on to it
  std::size_t bytes = sizeof(Digest);
  const OSSL_PARAM parameters[] = {OSSL_PARAM_construct_size_t(OSSL_MAC_PARAM_SIZE, &bytes),
                                   OSSL_PARAM_construct_end()};
  Require(m_Context != nullptr && EVP_MAC_CTX_set_params(m_Context.get(), parameters) == 1);
}

KeyedDigest::~KeyedDigest() {
  OPENSSL_cleanse(m_Input.data(), m_Input.size());
}

KeyedDigest& KeyedDigest::Begin(char purpose) {
  m_Used = 0;
  Append(&purpose, 1);
  return *this;
}

KeyedDigest& KeyedDigest::Add(std::string_view text) {
  const std::uint64_t size = text.size();
  Append(&size, sizeof(size));
  Append(text.data(), text.size());
  return *this;
}

void KeyedDigest::Append(const void* bytes, std::size_t count) {
  if (count > m_Input.size() - m_Used) {
    Grow(count);
  }
  if (count > 0) {
    std::memcpy(m_Input.data() + m_Used, bytes, count);
    m_Used += count;
  }
}

/// Not by `resize` of what there is: it would leave a copy of a password behind in freed memory.
void KeyedDigest::Grow(std::size_t count) {
  std::vector<unsigned char> larger(2 * (m_Used + count));
  std::memcpy(larger.data(), m_Input.data(), m_Used);
  OPENSSL_cleanse(m_Input.data(), m_Input.size());
  m_Input.swap(larger);
}

Digest KeyedDigest::Finish() {
  unsigned char bytes[sizeof(Digest)];
  std::size_t count = 0;
  const bool done = EVP_MAC_init(m_Context.get(), m_Key.Value(), Tarn::SymmetricKey_Length, nullptr) == 1 &&
                    EVP_MAC_update(m_Context.get(), m_Input.data(), m_Used) == 1 &&
                    EVP_MAC_final(m_Context.get(), bytes, &count, sizeof(bytes)) == 1;
  OPENSSL_cleanse(m_Input.data(), m_Used); // it may hold a password
  Require(done && count == sizeof(bytes));
  Digest digest;
  std::memcpy(&digest.first, bytes, sizeof(digest.first));
  std::memcpy(&digest.second, bytes + sizeof(digest.first), sizeof(digest.second));
  return digest;
}

} // namespace Host
