#include "tool/probe/Hole.h"

#include <algorithm>
#include <array>

namespace Tool {

namespace {

constexpr std::array<HoleFacts, 15> Facts = {{
    {Hole::Path, "path", "the path that is judged is not the one that is served"},
    {Hole::Unasked, "unasked", "requests get through without a yes of the host"},
    {Hole::Method, "method", "a method that no filter can name gets through"},
    {Hole::Question, "question", "a client's own field says what is judged"},
    {Hole::Certificate, "certificate", "a client's own field passes for its certificate"},
    {Hole::CredentialsTwice, "credentials-twice",
     "of two credentials the host judges one and the proxy passes on both"},
    {Hole::Identity, "identity", "a client's own Remote-User or Remote-Groups reaches the application"},
    {Hole::IdentityAlias, "identity-alias",
     "a field that applications take for Remote-User or Remote-Groups gets through"},
    {Hole::IdentityLost, "identity-lost", "a client can keep Remote-User or Remote-Groups from the application"},
    {Hole::MethodOverride, "method-override", "a field tells the application another method than was judged"},
    {Hole::TargetOverride, "target-override", "a field tells the application another target than was judged"},
    {Hole::ClientAddress, "client-address", "a client says itself which address it has"},
    {Hole::Upgrade, "upgrade", "an upgraded connection is a tunnel in which nothing is judged"},
    {Hole::Smuggling, "smuggling", "a request hidden in another's body reaches the application unjudged"},
    {Hole::Splitting, "splitting", "a line end in an encoded path splits what the proxy sends"},
}};

struct Remedies {
  Hole hole;
  std::array<const char*, 5> lines; // in the order of KnownProxies
};

constexpr const char* NormaliseNothing =
    "normalize_path: false, merge_slashes: false, path_with_escaped_slashes_action: KEEP_UNCHANGED";
constexpr const char* EnvoyDropsFields = "request_headers_to_remove on the virtual host, with this field";
constexpr const char* EnvoySetsIdentity =
    "authorization_response: {allowed_upstream_headers: {patterns: [{exact: remote-user}, {exact: remote-groups}]}}";
constexpr const char* TraefikDropsFields =
    "a headers middleware before forwardAuth: customRequestHeaders: {FIELD: \"\"}";

constexpr std::array<Remedies, 15> Lines = {{
    {Hole::Path,
     {"proxy_set_header X-Original-URI $request_uri; and proxy_pass http://application; without a path or a variable",
      "import perenna-protect first in the site's \"route\": before any uri, rewrite or handle_path, under no matcher",
      "no normalize-uri, set-path or replace-path; http-request set-uri %[pathq] before lua.perenna_check",
      "forwardAuth first in the router's middlewares: before stripPrefix and replacePath", NormaliseNothing}},
    {Hole::Unasked,
     {"auth_request /.perenna-check; in every location that passes on, and no \"satisfy any\"",
      "import perenna-protect in the site's \"route\", before anything that answers; no handle_response in "
      "forward_auth",
      "http-request deny deny_status 503 unless { var(txn.perenna_status) -m int 200 }",
      "middlewares: [perenna] on every router", "failure_mode_allow: false, and no per-route \"disabled: true\""}},
    {Hole::Method,
     {"proxy_set_header X-Original-Method $request_method; and no limit_except around auth_request",
      "forward_auth without a method matcher", "http-request lua.perenna_check without a condition on the method",
      "no router rule with Method() beside the guarded one", "ext_authz on every route, whatever its method"}},
    {Hole::Question,
     {"proxy_set_header X-Original-URI $request_uri; proxy_set_header X-Original-Method $request_method; in the "
      "question's location, and underscores_in_headers off;",
      "in forward_auth no header_up X-Forwarded-Uri or X-Forwarded-Method: it sets them itself",
      "in perenna-check.lua x-original-uri from txn.sf:url() and x-original-method from txn.sf:method() alone",
      "trustForwardHeader: false",
      "with_request_body unset, path_prefix: /envoy, and no X-Original-* in allowed_headers"}},
    {Hole::Certificate,
     {"proxy_set_header X-Client-Certificate $ssl_client_escaped_cert; in the question's location",
      "request_header -X-Client-Certificate, and header_up X-Client-Certificate "
      "{http.request.tls.client.certificate_der_base64} in forward_auth",
      "in perenna-check.lua x-client-certificate from txn.sf:ssl_c_der() alone",
      "passTLSClientCert: {pem: true}, behind a headers middleware with X-Forwarded-Tls-Client-Cert: \"\"",
      "forward_client_cert_details: SANITIZE_SET"}},
    {Hole::CredentialsTwice,
     {"no proxy_set_header Authorization in the question's location", "no header_up Authorization in forward_auth",
      "in perenna-check.lua all values of Authorization: values(fields, \"authorization\")",
      "no authRequestHeaders without Authorization", "no Lua or header mutation of authorization before ext_authz"}},
    {Hole::Identity,
     {"proxy_set_header Remote-User $perenna_user; proxy_set_header Remote-Groups $perenna_groups; in every location "
      "that passes on",
      "request_header -Remote* before forward_auth, both in a \"route\"",
      "http-request del-header ^remote -m reg, then set-header Remote-User and Remote-Groups from what the host said",
      "authResponseHeaders: [Remote-User, Remote-Groups]", EnvoySetsIdentity}},
    {Hole::IdentityAlias,
     {"underscores_in_headers off; ignore_invalid_headers on;", "request_header -Remote*",
      "http-request del-header [^A-Za-z0-9-] -m reg", TraefikDropsFields,
      "headers_with_underscores_action: DROP_HEADER"}},
    {Hole::IdentityLost,
     {"proxy_set_header Connection \"\";",
      "header_up Remote-User {header.Remote-User} and header_up Remote-Groups {header.Remote-Groups} in reverse_proxy",
      "http-request del-header connection", "a headers middleware before forwardAuth that removes Connection",
      EnvoySetsIdentity}},
    {Hole::MethodOverride,
     {"proxy_set_header X-HTTP-Method-Override \"\"; the same for X-HTTP-Method and X-Method-Override",
      "request_header -X-Http-Method*, request_header -X-Method-Override, request_header -X_*",
      "http-request del-header ^(x-http-method|x-method-override) -m reg", TraefikDropsFields, EnvoyDropsFields}},
    {Hole::TargetOverride,
     {"proxy_set_header X-Original-URL \"\"; proxy_set_header X-Rewrite-URL \"\";",
      "request_header -X-Original-*, request_header -X-Rewrite-*, request_header -X_*",
      "http-request del-header ^(x-original|x-rewrite) -m reg", TraefikDropsFields, EnvoyDropsFields}},
    {Hole::ClientAddress,
     {"proxy_set_header X-Real-IP $remote_addr;", "header_up X-Real-IP {remote_host}",
      "http-request set-header X-Real-IP %[src]", "no forwardedHeaders.insecure on the entry point",
      "use_remote_address: true, and x-real-ip in headers_to_add from "
      "%DOWNSTREAM_DIRECT_REMOTE_ADDRESS_WITHOUT_PORT%"}},
    {Hole::Upgrade,
     {"proxy_set_header Upgrade \"\"; proxy_set_header Connection \"\";", "request_header -Upgrade",
      "http-request del-header upgrade", TraefikDropsFields, "no upgrade_configs but websocket, where it is needed"}},
    {Hole::Smuggling,
     {"underscores_in_headers off; and no proxy_set_header Transfer-Encoding or Content-Length towards the application",
      "request_header -Transfer_*, request_header -Content_*", "http-request del-header [^A-Za-z0-9-] -m reg",
      "Transfer_Encoding: \"\" and Content_Length: \"\" in a headers middleware before forwardAuth",
      "headers_with_underscores_action: DROP_HEADER, and no allow_chunked_length: true"}},
    {Hole::Splitting,
     {"$request_uri where $uri or a capture of it stands in proxy_set_header or proxy_pass",
      "{uri} where {path} stands", "%[url] where %[path,url_dec] stands", "no replacePathRegex on decoded parts",
      NormaliseNothing}},
}};

} // namespace

const HoleFacts& FactsOf(Hole hole) {
  return *std::find_if(Facts.begin(), Facts.end(), [hole](const HoleFacts& facts) { return facts.hole == hole; });
}

const std::vector<std::string>& KnownProxies() {
  static const std::vector<std::string> proxies = {"nginx", "caddy", "haproxy", "traefik", "envoy"};
  return proxies;
}

std::string RemedyFor(Hole hole, const std::string& proxy) {
  const auto known = std::find(KnownProxies().begin(), KnownProxies().end(), proxy);
  const auto* const remedies =
      std::find_if(Lines.begin(), Lines.end(), [hole](const Remedies& entry) { return entry.hole == hole; });
  return remedies->lines.at(static_cast<std::size_t>(known - KnownProxies().begin()));
}

} // namespace Tool
