#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>

#include "PN_error.h"

namespace Perenna {

/// HTTP methods (RFC 9110, section 9; PATCH: RFC 5789). The numbers are fixed.
enum Method_t : std::uint32_t {
  METH_OPTIONS = 0,
  METH_HEAD = 1,
  METH_GET = 2,
  METH_POST = 3,
  METH_PUT = 4,
  METH_DELETE = 5,
  METH_TRACE = 6,
  METH_CONNECT = 7,
  METH_PATCH = 8,
  METH_MAX = 9 ///< how many there are, not a method
};

namespace Strings {
/// The methods a REST resource may offer, as an `Allow` header lists them.
TN_API extern const std::string AllMethods;
} // namespace Strings

/// The method's token, "GET" for METH_GET; "UNKNOWN" for METH_MAX and beyond. The text is static.
TN_API const char* MethodToString(Method_t method) noexcept;

/// The method of a token, compared exactly (RFC 9110: methods are case-sensitive); false, with `method` untouched,
/// for any other text.
TN_API bool StringToMethod(const std::string& token, Method_t& method) noexcept;

/// An incoming request as the access module sees it: its method, and its target exactly as received.
class HTTPRequest {
public:
  HTTPRequest(Method_t method, std::string url) : m_Method(method), m_URL(std::move(url)) {}
  Method_t Method() const noexcept { return m_Method; }
  const std::string& URL() const noexcept { return m_URL; }

private:
  Method_t m_Method;
  std::string m_URL;
};

/// Orders header names without regard to letter case, by the C library's `tolower` byte by byte; a name orders before
/// the longer names that begin with it. Stateless.
struct TN_API ci_comp {
  bool operator()(const std::string& left, const std::string& right) const noexcept;
};

/// Header name to value; names that differ in letter case alone are one key (RFC 9110, section 5.1).
using HeaderSet = std::map<std::string, std::string, ci_comp>;

/// The parts of a URL (RFC 3986), as plain data.
struct URL {
  bool m_Empty = true;
  std::string Scheme;
  std::string Username;
  std::string Password;
  std::string Hostname;
  std::uint16_t Port = 0;
  std::string Path;
  std::string QueryString;
  bool HasQueryToken = false; ///< a "?" was present, even before an empty query
};

/// One outgoing REST call of the server to itself.
struct BasicRestEntryCall {
  explicit BasicRestEntryCall(Method_t method) : Method(method) {}
  BasicRestEntryCall(Method_t method, URL target) : Method(method), TargetUrl(std::move(target)) {}
  BasicRestEntryCall(Method_t method, URL target, HeaderSet headers)
      : Method(method), TargetUrl(std::move(target)), RequestHeaders(std::move(headers)) {}

  Method_t Method;
  URL TargetUrl;
  HeaderSet RequestHeaders;
};

/// A hook that the REST client calls on an outgoing call just before sending it; it may change the call. One object
/// may be called from several threads at once.
class TN_API IPreFlightInsertCallback {
public:
  virtual ~IPreFlightInsertCallback();
  /// A negative result stops the call from being sent.
  virtual Result_t Call(BasicRestEntryCall& call_params) = 0;
};

} // namespace Perenna
