#include "PN_Digest.h"

#include <openssl/evp.h>

#include "TN_util.h"

namespace Perenna {

namespace {

// Fetched once and kept for the process: looking the algorithm up costs more than hashing a password.
const EVP_MD* Sha256Algorithm() {
  static const EVP_MD* const algorithm = EVP_MD_fetch(nullptr, "SHA256", nullptr);
  TN_REQUIRE(algorithm != nullptr, "SHA-256 is available");
  return algorithm;
}

} // namespace

IDigest::~IDigest() = default;

void SHA256::FreeContext::operator()(evp_md_ctx_st* context) const noexcept {
  EVP_MD_CTX_free(context);
}

SHA256::SHA256() : m_Context(EVP_MD_CTX_new()) {
  TN_REQUIRE(m_Context != nullptr, "a digest context can be allocated");
  SHA256::Reset();
}

SHA256::~SHA256() = default;

void SHA256::Reset() {
  TN_REQUIRE(EVP_DigestInit_ex(m_Context.get(), Sha256Algorithm(), nullptr) == 1, "the digest can be reset");
  m_Finalized = false;
}

void SHA256::Update(const byte_t* bytes, unsigned count) {
  TN_REQUIRE(!m_Finalized, "the digest is not finalized yet");
  TN_REQUIRE(EVP_DigestUpdate(m_Context.get(), bytes, count) == 1, "the digest accepts bytes");
}

void SHA256::Update(const std::string& text) {
  TN_REQUIRE(!m_Finalized, "the digest is not finalized yet");
  TN_REQUIRE(EVP_DigestUpdate(m_Context.get(), text.data(), text.size()) == 1, "the digest accepts bytes");
}

void SHA256::Finalize() {
  TN_REQUIRE(!m_Finalized, "the digest is not finalized yet");
  unsigned count = 0;
  TN_REQUIRE(EVP_DigestFinal_ex(m_Context.get(), m_Value, &count) == 1 && count == SHA256_Length,
             "the digest can be finalized");
  m_Finalized = true;
}

const char* SHA256::StringValue(char* buffer, unsigned length, bool hexadecimal) const {
  TN_REQUIRE(m_Finalized, "the digest is finalized");
  return hexadecimal ? Tarn::bin2hex(m_Value, SHA256_Length, buffer, length)
                     : Tarn::base64encode(m_Value, SHA256_Length, buffer, length);
}

} // namespace Perenna
