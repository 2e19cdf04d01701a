// What a proxy says about its client, and what strangers make of it.

#include <fstream>

#include "LocalAccessManager.h"
#include "host/caller/Credentials.h"
#include "host/caller/ForwardedCertificate.h"
#include "host/caller/Origin.h"
#include "host/caller/RequestId.h"
#include "platform/Helpers.h"
#include "support/AccessDirectory.h"

namespace Host {

namespace {

using Testing::Split;

/// Fields from "Name: value|Name: value".
std::vector<Field> FieldsFrom(const std::string& text) {
  std::vector<Field> fields;
  for (const std::string& line : Split(text, '|')) {
    const std::size_t colon = line.find(": ");
    fields.push_back({line.substr(0, colon), line.substr(colon + 2)});
  }
  return fields;
}

ProxyPeer PeerNetwork(const std::string& network) {
  ProxyPeer peer;
  peer.kind = ProxyPeer::Kind::Network;
  peer.network = *Network::Parse(network);
  return peer;
}

Configuration Proxied(const std::string& certificate_name = "") {
  Configuration configuration;
  configuration.proxy.peers = {PeerNetwork("127.0.0.0/8")};
  configuration.proxy.client_address = "X-Real-IP";
  configuration.proxy.certificate_name = certificate_name;
  return configuration;
}

Request RequestWith(const std::string& fields, const std::string& address = "127.0.0.1") {
  Request request;
  request.fields = FieldsFrom(fields);
  request.peer.address = address;
  return request;
}

} // namespace

TEST(ForwardedRequests, AreTakenFromOneFamilyOfFieldsThatNothingResembles) {
  const std::string good = "X-Original-Method: GET|X-Original-URI: /a,b?c";
  const struct {
    std::string fields;
    const char* fault; // a part of it; "" for none
  } cases[] = {
      {good, ""},
      {"x-original-method: GET|X-ORIGINAL-URI: /a,b?c|X-Forwarded-Method: PUT|X-Forwarded-Uri: /|Connection: close",
       ""},
      {"X-Original-URI: /a,b?c", "X-Original-Method is missing"},
      {"X-Original-Method: GET", "X-Original-URI is missing"},
      {"X-Original-Method: GET|X-Original-URI: ", "X-Original-URI is missing"},
      {good + "|X-Original-URI: /a,b?c", "X-Original-URI is doubled"},
      {good + "|x-original-method: GET", "X-Original-Method is doubled"},
      {good + "|X_Original_URI: /", "looks like X-Original-URI"},
      {good + "|X.Original.URI: /", "looks like X-Original-URI"},
      {good + "|x_original-method: PUT", "looks like X-Original-Method"},
      {good + "|Connection: keep-alive , x-original-uri", "Connection names"},
      {good + "|Connection: close|Connection: X_Original_Method", "Connection names"},
      {"X-Original-Method: GET, PUT|X-Original-URI: /", "method is unknown"},
      {"X-Original-Method: get|X-Original-URI: /", "method is unknown"},
      {"X-Forwarded-Method: GET|X-Forwarded-Uri: /", "missing"},
  };
  const OriginReader reader(Proxied());
  for (const auto& [fields, fault] : cases) {
    const ForwardedRequest forwarded = reader.ReadForwarded(RequestWith(fields));
    EXPECT_TRUE(*fault == '\0' ? forwarded.fault.empty() && forwarded.target == "/a,b?c"
                               : forwarded.fault.find(fault) != std::string::npos)
        << fields << ": " << forwarded.fault;
  }
  Configuration other = Proxied();
  other.proxy.headers = HeaderFamily::Forwarded;
  EXPECT_EQ(OriginReader(other).ReadForwarded(RequestWith("X-Forwarded-Method: PUT|X-Forwarded-Uri: /x")).target, "/x");
}

TEST(ForwardedRequests, BelieveTheirProxiesAlone) {
  Configuration configuration = Proxied("Client-Cert");
  ProxyPeer by_user;
  by_user.kind = ProxyPeer::Kind::UnixUser;
  by_user.user = 33;
  configuration.proxy.peers.push_back(by_user);
  const OriginReader reader(configuration);
  const std::string all = "X-Real-IP: 192.0.2.7|Client-Cert: :AAAA:|X-Request-Id: from.proxy_1-2";
  const struct {
    std::string fields;
    const char* peer; // an address, or the user of a Unix-domain socket
    std::string told; // is proxy, address, certificate, the request's id where it is the proxy's, fault
  } cases[] = {
      {all, "127.0.0.1", "proxy 192.0.2.7 :AAAA: from.proxy_1-2 "},
      {all, "33", "proxy 192.0.2.7 :AAAA: from.proxy_1-2 "},
      {all, "34", "stranger - - new "},
      {all, "198.51.100.9", "stranger 198.51.100.9 - new "},
      {"X: y", "127.0.0.1", "proxy - - new "},
      {"X-Real-IP: 192.0.2.66, 2001:db8::7", "127.0.0.1", "proxy 2001:db8::7 - new "},
      {"X-Real-IP: unknown", "127.0.0.1", "proxy - - new the field X-Real-IP holds no numeric address"},
      {"X_Real_IP: 192.0.2.7", "127.0.0.1", "proxy - - new a field looks like X-Real-IP"},
      {"Client-Cert: a|Client-Cert: b", "127.0.0.1", "proxy - - new the field Client-Cert is doubled"},
      {"Client_Cert: a", "127.0.0.1", "proxy - - new a field looks like Client-Cert"},
      {"X-Request-Id: a b", "127.0.0.1", "proxy - - new "},
      {"X-Request-Id: a|X-Request-Id: b", "127.0.0.1", "proxy - - new "},
  };
  const auto told = [](const std::string& text) { return text.empty() ? std::string("-") : text; };
  for (const auto& [fields, peer, expected] : cases) {
    Request request = RequestWith(fields, peer);
    if (request.peer.address.find('.') == std::string::npos) {
      request.peer.unix_domain = true;
      request.peer.user = static_cast<uid_t>(std::stoul(request.peer.address));
      request.peer.address.clear();
    }
    const Origin origin = reader.Read(request);
    EXPECT_TRUE(IsRequestId(origin.request_id)) << origin.request_id;
    EXPECT_EQ((origin.is_proxy ? "proxy " : "stranger ") + told(origin.address) + " " + told(origin.certificate) + " " +
                  (fields == all && origin.is_proxy ? origin.request_id : "new") + " " + origin.fault,
              expected)
        << fields << " from " << peer;
  }
  Request request = RequestWith(all);
  request.peer.tls = true;
  request.peer.certificate_der = "DER";
  EXPECT_EQ(reader.Read(request).certificate, "DER") << "a header counts on a TLS connection of ours";
  EXPECT_NE(NewRequestId(), NewRequestId());
  EXPECT_FALSE(IsRequestId(std::string(65, 'a')));
}

TEST(ForwardedCertificates, AreReadInFourFormsOneAtATime) {
  const auto made = [](const std::string& command) {
    return Testing::Output("f=$(mktemp -d) && cd $f && openssl req -x509 -newkey ec -pkeyopt "
                           "ec_paramgen_curve:prime256v1 -nodes -subj /CN=peer -keyout key -out pem 2>log && " +
                           command + "; rm -r $f");
  };
  const std::string pem = made("cat pem");
  Perenna::X509Certificate certificate;
  ASSERT_EQ(certificate.DecodePEM(pem), Tarn::RESULT_OK) << pem;
  std::string base64;
  for (const std::string& line : Split(pem, '\n')) {
    base64 += line.compare(0, 5, "-----") == 0 ? "" : line;
  }
  const auto escaped = [](const std::string& text) {
    std::string result;
    for (const char byte : text) {
      char encoded[4];
      static_cast<void>(
          std::snprintf(encoded, sizeof(encoded), "%%%02X", static_cast<unsigned>(static_cast<unsigned char>(byte))));
      result += std::isalnum(static_cast<unsigned char>(byte)) != 0 ? std::string(1, byte) : encoded;
    }
    return result;
  };
  const std::string xfcc = "By=spiffe://x;Hash=00;Subject=\"CN=a,b;c\\\"d\";Cert=\"" + escaped(pem) + "\"";
  const struct {
    CertificateForm form;
    bool is_read;
    std::string value;
  } cases[] = {
      {CertificateForm::Rfc9440, true, ":" + base64 + ":"},
      {CertificateForm::Rfc9440, false, base64},
      {CertificateForm::Rfc9440, false, ":" + base64 + ":, :" + base64 + ":"},
      {CertificateForm::Rfc9440, false, "::"},
      {CertificateForm::PemEscaped, true, escaped(pem)},
      {CertificateForm::PemEscaped, false, escaped(pem + pem)},
      {CertificateForm::PemEscaped, false, escaped("x" + pem)},
      {CertificateForm::PemEscaped, false, escaped(pem) + "x"},
      {CertificateForm::PemEscaped, false, escaped(pem) + "%0"},
      {CertificateForm::DerBase64, true, base64},
      {CertificateForm::DerBase64, true, escaped(base64)},
      {CertificateForm::DerBase64, false, base64 + "," + base64},
      {CertificateForm::Xfcc, true, xfcc},
      {CertificateForm::Xfcc, true, "cert=" + escaped(pem)},
      {CertificateForm::Xfcc, false, xfcc + "," + xfcc},
      {CertificateForm::Xfcc, false, xfcc + ";Cert=" + escaped(pem)},
      {CertificateForm::Xfcc, false, xfcc.substr(0, xfcc.size() - 1)},
      {CertificateForm::Xfcc, false, "By=x;Hash=00"},
      {CertificateForm::Xfcc, false, ""},
  };
  for (const auto& [form, is_read, value] : cases) {
    Perenna::X509Certificate read;
    EXPECT_EQ(DecodeForwardedCertificate(value, form, read), is_read) << value;
    EXPECT_EQ(read.Thumbprint() == certificate.Thumbprint(), is_read) << value;
  }
}

TEST(CallersCredentials, AreTheFirstThatAreThereAndNeverNoneWhenTheyAreWrong) {
  ASSERT_EQ(LocalAccessManager::InitSelfAccessManager({}), Tarn::RESULT_OK);
  SelfCalls self_calls;
  const std::string key = "x-pn-selfcallbackid: " + self_calls.Stamp("selma");
  const struct {
    std::string fields;
    std::string certificate;
    std::string taken; // kind, user, password
  } cases[] = {
      {"Authorization: Basic cm9vdDpwYTpzcw==|" + key, "DER", "password root pa:ss"},
      {"Authorization: bAsIc  OnB3", "", "password  pw"},
      {"Authorization: Bearer cm9vdDpyb290", "DER", "malformed"},
      {"Authorization: Basic", "", "malformed"},
      {"Authorization: Basic cm9vdA==", "", "malformed"},
      {"Authorization: Basic cm9vdDpyb290 x", "", "malformed"},
      {"Authorization: Basic cm9vdDpyb290|Authorization: Basic cm9vdDpyb290", "", "malformed"},
      {key, "DER", "certificate  "},
      {key, "", "known selma "},
      {key, "", "malformed"},
      {"x-pn-SelfCallbackId: 00000000-0000-0000-0000-000000000000", "", "malformed"},
      {"X: y", "", "anonymous guest "},
  };
  const char* const names[] = {"none", "malformed", "password", "certificate", "known", "anonymous"};
  for (const auto& [fields, der, taken] : cases) {
    Origin origin;
    origin.certificate = der;
    const Credentials credentials = ReadCredentials(RequestWith(fields), origin, self_calls, "guest");
    std::string found = names[static_cast<int>(credentials.kind)];
    if (credentials.kind != Credentials::Kind::Malformed) {
      found += " " + credentials.user_id + " " + credentials.password;
    }
    EXPECT_EQ(found, taken) << fields;
  }
  EXPECT_EQ(ReadCredentials(RequestWith("X: y"), {}, self_calls, "").kind, Credentials::Kind::None);
}

} // namespace Host
