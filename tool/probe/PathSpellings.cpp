#include "tool/probe/PathSpellings.h"

#include <algorithm>
#include <array>

namespace Tool {

namespace {

// One step up, as servers, frameworks and file systems read it. The slash behind it is part of some.
constexpr std::array Ups = {"../",     "%2e%2e/", "%2E%2E/", ".%2e/",         "..%2f",       "..%2F",   "..;/",
                            "..;x=y/", "..\\",    "..%5c",   "..%5C",         "%252e%252e/", "..%252f", "..%00/",
                            "..%0a/",  "..%09/",  "..//",    "%c0%ae%c0%ae/", ".%00./"};

// What may stand in a separator's place.
constexpr std::array Separators = {"//",    "/./", "/x/../", "/%2e/", "/%2E/", "%2f",  "%2F",
                                   "%252f", "\\",  "%5c",    "%5C",   ";x/",   "/;x/", "/%20/"};

// What may stand behind a path and be cut off.
constexpr std::array Ends = {"%00", "%00.html", "%0a", "%20", ";",     ";x=y", "%3b", "%3f", "%3Fx",
                             "%23", "#",        "?",   "/.",  "/x/..", "/%2e", "%2f", "\\",  "\t"};

std::string Escaped(char byte) {
  static constexpr const char* Digits = "0123456789abcdef";
  const auto value = static_cast<unsigned char>(byte);
  return {'%', Digits[value / 16], Digits[value % 16]};
}

/// The way from inside `from`, or from beside its last segment, back to the top.
std::string Climb(const std::string& from, const char* up, bool from_inside) {
  std::string path = from_inside ? from : from.substr(0, from.rfind('/'));
  const auto steps = std::count(path.begin(), path.end(), '/');
  path += '/';
  for (auto i = steps; i > 0; --i) {
    path += up;
  }
  return path;
}

} // namespace

std::vector<std::string> PathSpellings(const std::string& wanted, const std::string& allowed) {
  std::vector<std::string> spellings;
  const std::string behind_slash = wanted.substr(1);
  for (const char* const up : Ups) {
    spellings.push_back(Climb(allowed, up, false) + behind_slash);
    spellings.push_back(Climb(allowed, up, true) + behind_slash);
    spellings.push_back(Climb(wanted, up, true) + allowed.substr(1));
  }
  const std::size_t last = wanted.rfind('/');
  for (const char* const separator : Separators) {
    spellings.push_back(separator + behind_slash);
    if (last != 0) {
      spellings.push_back(wanted.substr(0, last) + separator + wanted.substr(last + 1));
    }
  }
  const std::size_t letter = wanted.find_first_not_of('/');
  if (letter != std::string::npos) {
    const std::string escaped = Escaped(wanted[letter]);
    for (const std::string& spelling : {escaped, "%25" + escaped.substr(1)}) {
      std::string target = wanted;
      spellings.push_back(target.replace(letter, 1, spelling));
    }
  }
  for (const char* const end : Ends) {
    spellings.push_back(wanted + end);
    spellings.push_back(spellings.back() + allowed);
  }
  spellings.push_back("//x" + wanted);
  // A path that begins with the separator's other form is not one that a request can have: "\\x", "%2fx".
  spellings.erase(std::remove_if(spellings.begin(), spellings.end(),
                                 [](const std::string& spelling) { return spelling.front() != '/'; }),
                  spellings.end());
  return spellings;
}

} // namespace Tool
