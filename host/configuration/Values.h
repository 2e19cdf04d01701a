#pragma once

#include <string>

#include "host/Configuration.h"

namespace Host {

// The single values of the configuration that have a syntax of their own. Each is false, its result untouched, for a
// text that is not of its form.

/// "unix", "unix:USER" (a name or a number) or a network in CIDR form.
bool ParsePeer(const std::string& text, ProxyPeer& peer);

/// ";", or "%" and two upper-case hexadecimal digits of a byte that is neither a control byte nor a dot.
bool IsAllowedSpelling(const std::string& text) noexcept;

/// A header field's name (RFC 9110, 5.1: a token).
bool IsFieldName(const std::string& text) noexcept;

/// What stands between the quotes of `realm="..."` as it is: printable ASCII without the quote and the backslash.
bool IsRealm(const std::string& text) noexcept;

/// A user id as a header can carry it: no control characters, no space at either end.
bool IsCarriedUserId(const std::string& text) noexcept;

/// A group of the system.
bool IsSystemGroup(const std::string& text);

/// A pattern that begins with "^", has no alternative outside its groups, and compiles.
bool IsBypassPattern(const std::string& pattern);

} // namespace Host
