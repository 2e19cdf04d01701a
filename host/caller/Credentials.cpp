#include "host/caller/Credentials.h"

#include "LocalAccessManager.h"

namespace Host {

namespace {

constexpr const char* AuthorizationField = "Authorization";
constexpr std::string_view Basic = "Basic";

Credentials Malformed(const char* reason) {
  Credentials credentials;
  credentials.kind = Credentials::Kind::Malformed;
  credentials.reason = reason;
  return credentials;
}

/// RFC 7617, section 2.
Credentials FromAuthorization(const std::string& value) {
  const std::size_t space = value.find(' ');
  if (!EqualIgnoringCase(std::string_view(value).substr(0, space), Basic)) {
    return Malformed("refused: the scheme of Authorization is not Basic");
  }
  const std::size_t begin = value.find_first_not_of(' ', space);
  Credentials credentials;
  credentials.kind = Credentials::Kind::Password;
  const std::string pair =
      begin == std::string::npos ? std::string() : LocalAccessManager::DecodeBase64(value.substr(begin));
  if (!LocalAccessManager::SplitColonPair(pair, credentials.user_id, credentials.password)) {
    return Malformed("refused: the credentials of Authorization are malformed");
  }
  return credentials;
}

} // namespace

Credentials ReadCredentials(const Request& request, const Origin& origin, SelfCalls& self_calls,
                            const std::string& anonymous_user_id) {
  if (const std::string* const authorization = request.Find(AuthorizationField)) {
    return request.Count(AuthorizationField) == 1 ? FromAuthorization(*authorization)
                                                  : Malformed("refused: there is more than one Authorization");
  }
  Credentials credentials;
  if (!origin.certificate.empty()) {
    credentials.kind = Credentials::Kind::Certificate;
    credentials.certificate = origin.certificate;
    credentials.is_der = origin.is_der;
    return credentials;
  }
  const std::string& key_field = LocalAccessManager::Strings::SelfCallbackId;
  if (const std::string* const key = request.Find(key_field)) {
    if (request.Count(key_field) != 1 || !self_calls.Resolve(*key, credentials.user_id)) {
      return Malformed("refused: the self access key is not valid");
    }
    credentials.kind = Credentials::Kind::Known;
    return credentials;
  }
  if (!anonymous_user_id.empty()) {
    credentials.kind = Credentials::Kind::Anonymous;
    credentials.user_id = anonymous_user_id;
  }
  return credentials;
}

} // namespace Host
