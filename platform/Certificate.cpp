#include "PN_x509.h"

#include <climits>
#include <memory>

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

namespace Perenna {

namespace {

using CertificatePointer = std::unique_ptr<X509, decltype(&X509_free)>;
using BioPointer = std::unique_ptr<BIO, decltype(&BIO_free)>;

/// Takes what OpenSSL queues as errors of this thread off again: a host's next TLS call would read them as its own.
class ErrorsTakenOff {
public:
  ErrorsTakenOff() { ERR_set_mark(); }
  ~ErrorsTakenOff() { ERR_pop_to_mark(); }
  ErrorsTakenOff(const ErrorsTakenOff&) = delete;
  ErrorsTakenOff& operator=(const ErrorsTakenOff&) = delete;
};

Result_t TakeThumbprint(const X509* certificate, X509Thumbprint& thumbprint) {
  Tarn::byte_t digest[EVP_MAX_MD_SIZE];
  unsigned count = 0;
  if (certificate == nullptr || X509_digest(certificate, EVP_sha1(), digest, &count) != 1 ||
      count != X509Thumbprint_Length) {
    return Tarn::RESULT_PARAM;
  }
  thumbprint.Set(digest);
  return Tarn::RESULT_OK;
}

} // namespace

Result_t X509Certificate::DecodeDER(const Tarn::byte_t* bytes, unsigned count) {
  if (bytes == nullptr || count > static_cast<unsigned>(LONG_MAX)) {
    return Tarn::RESULT_PARAM;
  }
  const ErrorsTakenOff taken_off;
  const Tarn::byte_t* position = bytes;
  const CertificatePointer certificate(d2i_X509(nullptr, &position, static_cast<long>(count)), &X509_free);
  if (certificate == nullptr || position != bytes + count) {
    return Tarn::RESULT_PARAM;
  }
  return TakeThumbprint(certificate.get(), m_Thumbprint);
}

Result_t X509Certificate::DecodePEM(const std::string& text) {
  if (text.size() > static_cast<std::size_t>(INT_MAX)) {
    return Tarn::RESULT_PARAM;
  }
  const ErrorsTakenOff taken_off;
  const BioPointer source(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())), &BIO_free);
  if (source == nullptr) {
    return Tarn::RESULT_PARAM;
  }
  // An encrypted PEM is refused instead of asking for a passphrase on the terminal.
  const auto no_passphrase = [](char*, int, int, void*) { return -1; };
  const CertificatePointer certificate(PEM_read_bio_X509(source.get(), nullptr, no_passphrase, nullptr), &X509_free);
  return TakeThumbprint(certificate.get(), m_Thumbprint);
}

} // namespace Perenna
