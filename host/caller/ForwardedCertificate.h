#pragma once

#include <string>

#include "PN_x509.h"
#include "host/Configuration.h"

namespace Host {

/// Reads the one certificate that a proxy hands over in a header field. False, with `certificate` untouched, for a
/// malformed value and for one that holds more than one certificate or none. Thread-safe.
///
/// Rfc9440: `:BASE64:` of the DER form (RFC 9440, section 2.1). PemEscaped: percent-encoded PEM. DerBase64: base64 of
/// the DER form, percent-encoded or not. Xfcc: an element of Envoy's x-forwarded-client-cert whose `Cert` is
/// percent-encoded PEM.
bool DecodeForwardedCertificate(const std::string& value, CertificateForm form, Perenna::X509Certificate& certificate);

} // namespace Host
