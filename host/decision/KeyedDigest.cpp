#include "host/decision/KeyedDigest.h"

#include <cstring>

#include <openssl/core_names.h>
#include <openssl/params.h>

#include "directory/Failure.h"

namespace Host {

namespace {

void Require(bool done) {
  if (!done) { // out of memory, or an OpenSSL without its default provider
    throw AccessDirectory::Failure(AccessDirectory::Failure::Kind::System, "OpenSSL computes no SipHash");
  }
}

const unsigned char* Bytes(const void* data) noexcept {
  return static_cast<const unsigned char*>(data);
}

} // namespace

KeyedDigest::KeyedDigest(const Tarn::SymmetricKey& key) : m_Key(key) {
  EVP_MAC* const algorithm = EVP_MAC_fetch(nullptr, "SIPHASH", nullptr);
  Require(algorithm != nullptr);
  m_Context.reset(EVP_MAC_CTX_new(algorithm));
  EVP_MAC_free(algorithm); // the context holds on to it
  std::size_t bytes = sizeof(Digest);
  const OSSL_PARAM parameters[] = {OSSL_PARAM_construct_size_t(OSSL_MAC_PARAM_SIZE, &bytes),
                                   OSSL_PARAM_construct_end()};
  Require(m_Context != nullptr && EVP_MAC_CTX_set_params(m_Context.get(), parameters) == 1);
}

KeyedDigest& KeyedDigest::Begin(char purpose) {
  Require(EVP_MAC_init(m_Context.get(), m_Key.Value(), Tarn::SymmetricKey_Length, nullptr) == 1 &&
          EVP_MAC_update(m_Context.get(), Bytes(&purpose), 1) == 1);
  return *this;
}

KeyedDigest& KeyedDigest::Add(std::string_view text) {
  const std::uint64_t size = text.size();
  Require(EVP_MAC_update(m_Context.get(), Bytes(&size), sizeof(size)) == 1 &&
          (text.empty() || EVP_MAC_update(m_Context.get(), Bytes(text.data()), text.size()) == 1));
  return *this;
}

Digest KeyedDigest::Finish() {
  unsigned char bytes[sizeof(Digest)];
  std::size_t count = 0;
  Require(EVP_MAC_final(m_Context.get(), bytes, &count, sizeof(bytes)) == 1 && count == sizeof(bytes));
  Digest digest;
  std::memcpy(&digest.first, bytes, sizeof(digest.first));
  std::memcpy(&digest.second, bytes + sizeof(digest.first), sizeof(digest.second));
  return digest;
}

} // namespace Host
