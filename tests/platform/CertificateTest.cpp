// Certificates: thumbprints, malformed and encrypted forms.

#include <openssl/err.h>

#include "Helpers.h"
#include "PN_x509.h"

using Perenna::X509Certificate;

namespace {

/// A key and a self-signed certificate of it, made by the openssl program.
struct Made {
  Testing::TemporaryDirectory directory;
  std::string pem = Run("openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -subj /CN=peer"
                        " -keyout key 2>log | tee pem");
  std::string key = Run("cat key");
  std::string der = Run("openssl x509 -in pem -outform DER");
  std::string thumbprint =
      Run("openssl x509 -in pem -noout -fingerprint -sha1 | sed s/.*=// | tr -d ':\\n' | tr A-F a-f");

  std::string Run(const std::string& command) const {
    return Testing::Output("cd '" + directory.Path() + "' && " + command);
  }
};

std::string Thumbprint(const X509Certificate& certificate) {
  char text[64] = "";
  certificate.Thumbprint().EncodeHex(text, sizeof(text));
  return certificate.Thumbprint().HasValue() ? text : "";
}

bool DecodeDER(X509Certificate& certificate, const std::string& der) {
  const std::vector<Tarn::byte_t> exact(der.begin(), der.end()); // no terminator to run into
  return certificate.DecodeDER(exact.data(), static_cast<unsigned>(exact.size())) == Tarn::RESULT_OK;
}

} // namespace

TEST(Certificates, ThumbprintIsTheOneThatToolsPrintAndMalformedOnesChangeNothing) {
  const Made made;
  const Made other;
  X509Certificate certificate;
  ASSERT_EQ(certificate.DecodePEM(std::string("\0 a chain\n", 10) + other.key + other.pem + made.pem), Tarn::RESULT_OK)
      << other.pem;
  EXPECT_EQ(Thumbprint(certificate), other.thumbprint);
  ASSERT_TRUE(DecodeDER(certificate, made.der)) << made.pem;
  for (std::size_t length = 0; length < made.der.size(); ++length) {
    EXPECT_FALSE(DecodeDER(certificate, made.der.substr(0, length))) << "cut at " << length;
  }
  EXPECT_FALSE(DecodeDER(certificate, made.der + '\0')) << "something follows";
  std::string encrypted = made.pem; // must not ask for a passphrase on the terminal
  encrypted.insert(encrypted.find('\n') + 1,
                   "Proc-Type: 4,ENCRYPTED\nDEK-Info: AES-128-CBC," + std::string(32, '0') + "\n\n");
  for (const std::string& text : {std::string(), made.key, encrypted, made.der, made.pem.substr(0, 200)}) {
    EXPECT_EQ(certificate.DecodePEM(text), Tarn::RESULT_PARAM) << text;
  }
  EXPECT_EQ(Thumbprint(certificate), made.thumbprint);
  EXPECT_EQ(ERR_peek_error(), 0U) << "the host's TLS code reads this queue";
}
