#include "host/page/StaticFiles.h"

#include <algorithm>
#include <array>

#include <openssl/evp.h>

#include "TN_util.h"
#include "host/http/Target.h"
#include "host/page/EmbeddedFiles.h"

namespace Host {

namespace {

constexpr std::string_view Entrance = "/access/";

/// A strong entity tag (RFC 9110, 8.8.3) of the contents.
std::string TagOf(std::string_view bytes) {
  constexpr std::size_t TagBytes = 16; // of a SHA-256 (FIPS 180-4): nobody forges files of the program
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned length = 0;
  EVP_Digest(bytes.data(), bytes.size(), digest.data(), &length, EVP_sha256(), nullptr);
  std::array<char, 2 * TagBytes + 1> text{};
  return std::string("\"") + Tarn::bin2hex(digest.data(), TagBytes, text.data(), text.size()) + '"';
}

} // namespace

std::optional<Response> AnswerPage(const Request& request) {
  const std::string_view path = PathOf(request.target);
  if (request.method != "GET" && request.method != "HEAD") {
    return std::nullopt;
  }
  if (path == "/") {
    return Response{302, {{"Location", std::string(Entrance)}, {"Cache-Control", "no-cache"}}, {}};
  }
  const auto& files = EmbeddedFiles();
  const auto file =
      std::find_if(files.begin(), files.end(), [path](const StaticFile& each) { return each.path == path; });
  if (file == files.end()) {
    return std::nullopt;
  }
  const std::string tag = TagOf(file->bytes);
  Response response;
  response.fields = {{"Content-Type", std::string(file->type)},
                     {"Content-Security-Policy", "default-src 'self'"},
                     {"X-Content-Type-Options", "nosniff"},
                     {"X-Frame-Options", "DENY"},
                     {"Referrer-Policy", "no-referrer"},
                     {"Cache-Control", "no-cache"},
                     {"ETag", tag}};
  const std::string* const known = request.Find("If-None-Match");
  if (known != nullptr && *known == tag) {
    response.status = 304;
  } else {
    response.body = file->bytes;
  }
  return response;
}

} // namespace Host
