#pragma once

#include <string>

#include "PN_error.h"
#include "PN_x509Thumbprint.h"

namespace Perenna {

/// A peer's TLS client certificate, of which its thumbprint is kept. Default-constructed it holds none. A plain value:
/// copies are independent.
class TN_API X509Certificate {
public:
  X509Certificate() = default;
  /// A certificate known by its thumbprint alone, for hosts whose TLS library has computed it already.
  explicit X509Certificate(const X509Thumbprint& thumbprint) : m_Thumbprint(thumbprint) {}

  /// Reads one certificate in DER form (ITU-T X.690, RFC 5280) of `count` bytes, nothing after it.
  /// Tarn::RESULT_OK, or Tarn::RESULT_PARAM with the object unchanged.
  Result_t DecodeDER(const Tarn::byte_t* bytes, unsigned count);
  /// Reads the first certificate of a PEM text (RFC 7468). Results as `DecodeDER`.
  Result_t DecodePEM(const std::string& text);

  const X509Thumbprint& Thumbprint() const noexcept { return m_Thumbprint; }
  // NOLINTNEXTLINE(google-explicit-constructor): a certificate stands wherever its thumbprint is asked for
  operator const X509Thumbprint&() const noexcept { return m_Thumbprint; }

private:
  X509Thumbprint m_Thumbprint;
};

} // namespace Perenna
