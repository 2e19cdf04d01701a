#include "host/decision/CredentialCheck.h"

#include <array>

#include "PN_Digest.h"
#include "host/caller/ForwardedCertificate.h"

namespace Host {

namespace {

using Kind = Credentials::Kind;

const std::string nobody = "\x01"; // an id that no sensible directory holds

/// Computes what the module computes to check a "sha256" credential.
void ComputeDigest(const std::string& password) {
  constexpr std::size_t TextBytes = 128;
  constexpr std::array<Tarn::byte_t, 16> Constant{};
  static const std::string salt(32, '0');
  Perenna::SHA256 digest;
  digest.Update(Constant.data(), static_cast<unsigned>(Constant.size()));
  digest.Update(salt);
  digest.Update(password);
  digest.Finalize();
  std::array<char, TextBytes> text{};
  static_cast<void>(digest.StringValue(text.data(), text.size(), true));
}

} // namespace

bool CredentialCheck::Prove(const Credentials& credentials, const Perenna::HTTPRequest& request, CallWatch& watch,
                            Judgement& judgement) {
  judgement.user_id = credentials.user_id;
  judgement.outcome = Outcome::Unauthenticated;
  if (credentials.kind == Kind::Known || credentials.kind == Kind::Anonymous) {
    return true;
  }
  if (credentials.kind != Kind::Password) {
    return ProveCertificate(credentials, request, judgement);
  }
  if (m_Manager.TestUserIdAndPassword(request, credentials.user_id, credentials.password)) {
    return true;
  }
  judgement.reason = "refused: unknown user or wrong password";
  EvenOut(request, credentials.password, watch);
  return false;
}

bool CredentialCheck::ProveCertificate(const Credentials& credentials, const Perenna::HTTPRequest& request,
                                       Judgement& judgement) {
  Perenna::X509Certificate certificate;
  const std::string& bytes = credentials.certificate;
  const bool is_read = credentials.is_der ? !certificate
                                                 .DecodeDER(reinterpret_cast<const Tarn::byte_t*>(bytes.data()),
                                                            static_cast<unsigned>(bytes.size()))
                                                 .Failed()
                                          : DecodeForwardedCertificate(bytes, m_Form, certificate);
  if (!is_read) {
    judgement.outcome = Outcome::Malformed;
    judgement.reason = "refused: the certificate is malformed, or not the only one";
    return false;
  }
  judgement.reason = "refused: no user is registered for the certificate";
  return m_Manager.TestUserCertificate(request, certificate, judgement.user_id);
}

/// One lookup that finds a user, one that finds none, and a digest.
void CredentialCheck::EvenOut(const Perenna::HTTPRequest& request, const std::string& password, CallWatch& watch) {
  watch.Silence();
  const std::string& other = watch.FoundUser() ? nobody : m_Explainer.SomeUser();
  m_Manager.TestUserIdAndPassword(request, other, password);
  if (!watch.Digested()) {
    ComputeDigest(password);
  }
}

void CredentialCheck::AskForNobody() {
  const Perenna::HTTPRequest request(Perenna::METH_GET, "/");
  m_Manager.TestUserIdAndPassword(request, nobody, {});
  m_Manager.TestRequestForUser(request, nobody);
}

} // namespace Host
