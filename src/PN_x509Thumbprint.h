#pragma once

#include "TN_util.h"

namespace Perenna {

constexpr unsigned X509Thumbprint_Length = 20;

/// The thumbprint of an X.509 certificate: the SHA-1 digest (FIPS 180-4) of its DER form.
class X509Thumbprint : public Tarn::Identifier<X509Thumbprint_Length> {};

} // namespace Perenna
