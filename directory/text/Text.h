#pragma once

#include <optional>
#include <string>

#include <nlohmann/json.hpp>

namespace AccessDirectory {

/// Keeps the order in which members are added: output shapes are part of the interface.
using Json = nlohmann::ordered_json;

/// Whether a backslash is shown doubled. In an id it is, so that an escape cannot be mistaken for stored text; in a
/// pattern, where backslashes abound, it is not.
enum class Backslash { Doubled, Kept };

/// Stored text as a terminal may get it: printable ASCII as it is; line breaks, tabs and carriage returns as \n, \t,
/// \r; other characters of valid UTF-8 as \u{HEX}; remaining bytes as \xNN. Never drives a terminal, and shows a
/// look-alike letter for what it is.
std::string Shown(const std::string& text, Backslash backslash = Backslash::Doubled);

/// `Shown` between double quotes.
std::string Quoted(const std::string& text);

/// Whether `text` is UTF-8 (RFC 3629): no overlong forms, no surrogates, nothing beyond U+10FFFF.
bool IsUtf8(const std::string& text) noexcept;

/// Text as JSON: a string, or {"base64": "..."} when it is not UTF-8, so that no byte is lost.
Json JsonText(const std::string& text);

/// The bytes of a text that `JsonText` wrote; nothing for any other value.
std::optional<std::string> TextOfJson(const Json& json);

/// "1 user", "2 users".
std::string Count(std::size_t number, const std::string& noun);

/// How many single-character edits (insert, delete, replace, swap of neighbours) turn one text into the other.
std::size_t EditDistance(const std::string& left, const std::string& right);

} // namespace AccessDirectory
