#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "PN_HTTP.h"
#include "PN_Regex.h"

namespace AccessDirectory {

// What the module accepts, for commands that check before they store and for those that look at what is stored.

/// Whether the module takes the text for a group's id: ASCII letters, digits, "_" and "-".
bool IsGroupId(std::string_view group_id) noexcept;

// The actions of filters that count.
inline constexpr const char* Allow = "Allow";
inline constexpr const char* Deny = "Deny";

/// The method that `name` names; letter case counts (RFC 9110, section 9.1). Throws `Failure` with the names there are.
Perenna::Method_t KnownMethod(const std::string& name);

/// The known spelling of a method, or of an action, that differs in letter case only; else `name`.
std::string SpelledMethod(const std::string& name);
std::string SpelledAction(const std::string& name);

/// Compiles a pattern, up to its first NUL as the module does. When it never matches, `fault` becomes what it is ("not
/// a POSIX extended regular expression: ...", "too costly: ..."); else it is emptied. Clears the log.
std::unique_ptr<Perenna::RegularExpression> CompilePattern(const std::string& pattern, std::string& fault);

} // namespace AccessDirectory
