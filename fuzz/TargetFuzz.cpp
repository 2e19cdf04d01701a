// A target that is admitted has no empty segment. Whatever an application decodes of it, it finds none of dots; no
// control byte, and nothing that is encoded twice unless "%25" is allowed.

#include "Require.h"
#include "host/http/Target.h"

namespace {

int Digit(char character) {
  return character >= '0' && character <= '9'   ? character - '0'
         : character >= 'A' && character <= 'F' ? character - 'A' + 10
         : character >= 'a' && character <= 'f' ? character - 'a' + 10
                                                : -1;
}

std::string Decoded(const std::string& path) {
  std::string decoded;
  for (std::size_t at = 0; at < path.size(); ++at) {
    const bool escape = path[at] == '%' && at + 2 < path.size() && Digit(path[at + 1]) >= 0 && Digit(path[at + 2]) >= 0;
    decoded += escape ? static_cast<char>(16 * Digit(path[at + 1]) + Digit(path[at + 2])) : path[at];
    at += escape ? 2 : 0;
  }
  return decoded;
}

/// Of a path as it came, or as it is once it was decoded.
void RequireSegments(const std::string& path, bool is_decoded) {
  Fuzz::Require(!path.empty() && path.front() == '/', "begins with a slash", path);
  for (std::size_t begin = 1; begin < path.size();) { // one slash may end it
    const std::size_t end = std::min(path.find('/', begin), path.size());
    std::string segment = path.substr(begin, end - begin);
    segment.erase(std::min(segment.find(';'), segment.size()));
    Fuzz::Require(is_decoded || !segment.empty(), "no segment is empty", path);
    Fuzz::Require(segment != "." && segment != "..", "no segment is of dots", path);
    begin = end + 1;
  }
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view target = Fuzz::Text(data, size);
  const unsigned choice = Fuzz::Choice(target);
  std::vector<std::string> allows;
  const std::string spellings[] = {";", "%2F", "%25", "%40"};
  for (std::size_t i = 0; i < 4; ++i) {
    if ((choice >> i & 1) != 0) {
      allows.push_back(spellings[i]);
    }
  }
  if (!Host::TargetForm(allows).Fault(target).empty()) {
    return 0;
  }
  const std::string path(Host::PathOf(target));
  RequireSegments(path, false);
  std::string decoded = Decoded(path);
  for (const char character : decoded) {
    const auto byte = static_cast<unsigned char>(character);
    Fuzz::Require(byte >= 0x20 && byte != 0x7f, "no control byte", path);
  }
  RequireSegments(decoded, true);
  const bool allows_percent = (choice & 4) != 0;
  for (std::string again = Decoded(decoded); again != decoded; again = Decoded(decoded)) {
    Fuzz::Require(allows_percent, "what is decoded once is decoded", path);
    decoded = again;
    RequireSegments(decoded, true);
  }
  return 0;
}
