#include "host/caller/ForwardedCertificate.h"

#include <algorithm>
#include <optional>

#include "LocalAccessManager.h"
#include "TN_util.h"
#include "host/http/Message.h"

namespace Host {

namespace {

constexpr std::string_view PemBegin = "-----BEGIN CERTIFICATE-----";
constexpr std::string_view PemEnd = "-----END CERTIFICATE-----";

/// The bytes of a percent-encoded text (RFC 3986, section 2.1); "+" stands for itself.
std::optional<std::string> PercentDecoded(std::string_view text) {
  std::string decoded;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      decoded += text[i];
      continue;
    }
    Tarn::byte_t byte = 0;
    unsigned count = 0;
    if (Tarn::hex2bin(std::string(text.substr(i + 1, 2)).c_str(), &byte, 1, &count) != 0 || count != 1) {
      return std::nullopt;
    }
    decoded += static_cast<char>(byte);
    i += 2;
  }
  return decoded;
}

bool DecodeDer(const std::string& base64, Perenna::X509Certificate& certificate) {
  const std::string der = LocalAccessManager::DecodeBase64(base64);
  return !certificate.DecodeDER(reinterpret_cast<const Tarn::byte_t*>(der.data()), static_cast<unsigned>(der.size()))
              .Failed();
}

/// One PEM block and nothing but line ends around it: what stands beside it might be a certificate to another reader.
bool DecodePem(std::string_view escaped, Perenna::X509Certificate& certificate) {
  const std::optional<std::string> pem = PercentDecoded(escaped);
  if (!pem || pem->find('\0') != std::string::npos) {
    return false;
  }
  const std::size_t end = pem->find(PemEnd);
  return pem->compare(0, PemBegin.size(), PemBegin) == 0 && pem->find("-----BEGIN", 1) == std::string::npos &&
         end != std::string::npos && pem->find_first_not_of("\r\n", end + PemEnd.size()) == std::string::npos &&
         !certificate.DecodePEM(*pem).Failed();
}

/// The value of `Cert` in the only element of the list; no value for any other list.
std::optional<std::string> CertificateOfElement(std::string_view list) {
  std::optional<std::string> certificate;
  for (bool is_last = false; !is_last;) {
    const std::size_t equals = list.find('=');
    if (equals == std::string_view::npos) {
      return std::nullopt;
    }
    const std::string_view key = list.substr(0, equals);
    list.remove_prefix(equals + 1);
    std::string value;
    std::size_t end = 0;
    if (!list.empty() && list.front() == '"') { // a quoted value: a backslash takes the next character literally
      for (end = 1; end < list.size() && list[end] != '"'; ++end) {
        end += list[end] == '\\' ? 1U : 0U;
        value += end < list.size() ? list[end] : '"';
      }
      ++end;
    } else {
      end = std::min(list.find_first_of(";,\""), list.size());
      value = list.substr(0, end);
    }
    is_last = end == list.size();
    if (end > list.size() || (!is_last && list[end] != ';')) {
      return std::nullopt; // an open quote, or another element
    }
    list.remove_prefix(is_last ? end : end + 1);
    if (EqualIgnoringCase(key, "Cert")) {
      if (certificate) {
        return std::nullopt;
      }
      certificate = std::move(value);
    }
  }
  return certificate;
}

} // namespace

bool DecodeForwardedCertificate(const std::string& value, CertificateForm form, Perenna::X509Certificate& certificate) {
  switch (form) {
  case CertificateForm::Rfc9440:
    return value.size() > 2 && value.front() == ':' && value.back() == ':' &&
           DecodeDer(value.substr(1, value.size() - 2), certificate);
  case CertificateForm::PemEscaped:
    return DecodePem(value, certificate);
  case CertificateForm::DerBase64: {
    const std::optional<std::string> base64 = PercentDecoded(value);
    return base64 && base64->find('\0') == std::string::npos && DecodeDer(*base64, certificate);
  }
  case CertificateForm::Xfcc: {
    const std::optional<std::string> pem = CertificateOfElement(value);
    return pem && DecodePem(*pem, certificate);
  }
  }
  return false;
}

} // namespace Host
