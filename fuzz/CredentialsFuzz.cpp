// Credentials as strangers send them: Basic, and certificates as proxies hand them over.

#include "Require.h"
#include "host/caller/ForwardedCertificate.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view text = Fuzz::Text(data, size);
  const auto form = static_cast<Host::CertificateForm>(Fuzz::Choice(text) % 4);
  Perenna::X509Certificate certificate;
  (void)Host::DecodeForwardedCertificate(std::string(text), form, certificate);
  return 0;
}
