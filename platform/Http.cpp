#include "PN_HTTP.h"

#include <algorithm>
#include <array>
#include <cctype>

namespace Perenna {

namespace Strings {
const std::string AllMethods = "HEAD, GET, POST, DELETE, PUT, PATCH, OPTIONS";
} // namespace Strings

namespace {

constexpr std::array<const char*, METH_MAX> MethodNames = {"OPTIONS", "HEAD",  "GET",     "POST", "PUT",
                                                           "DELETE",  "TRACE", "CONNECT", "PATCH"};

unsigned char Lower(char character) noexcept {
  return static_cast<unsigned char>(std::tolower(static_cast<unsigned char>(character)));
}

} // namespace

// The numbers are fixed, and those of the names' places.
static_assert(METH_OPTIONS == 0 && METH_HEAD == 1 && METH_GET == 2 && METH_POST == 3 && METH_PUT == 4 &&
              METH_DELETE == 5 && METH_TRACE == 6 && METH_CONNECT == 7 && METH_PATCH == 8 && METH_MAX == 9);

const char* MethodToString(Method_t method) noexcept {
  // cppcheck-suppress CastIntegerToAddressAtReturn ; it takes the element for a number
  return method < METH_MAX ? MethodNames.at(method) : "UNKNOWN";
}

bool StringToMethod(const std::string& token, Method_t& method) noexcept {
  const auto* const found = std::find(MethodNames.begin(), MethodNames.end(), token);
  if (found == MethodNames.end()) {
    return false;
  }
  method = static_cast<Method_t>(found - MethodNames.begin());
  return true;
}

bool ci_comp::operator()(const std::string& left, const std::string& right) const noexcept {
  return std::lexicographical_compare(left.begin(), left.end(), right.begin(), right.end(),
                                      [](char a, char b) { return Lower(a) < Lower(b); });
}

IPreFlightInsertCallback::~IPreFlightInsertCallback() = default;

} // namespace Perenna
