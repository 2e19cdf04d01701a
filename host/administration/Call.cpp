#include "host/administration/Call.h"

#include <algorithm>
#include <array>

#include "host/http/TargetRules.h"

namespace Host {

using AccessDirectory::Json;

AccessDirectory::TargetRules Call::Targets() const {
  return TargetRulesOf(context.configuration.target == TargetPart::PathAndQuery, context.configuration.target_allows);
}

bool Call::Flag(const std::string& name) const {
  return Query(name) == "true";
}

std::string Call::Query(const std::string& name) const {
  const auto found = query.find(name);
  return found == query.end() ? std::string() : found->second;
}

std::optional<std::string> Call::Text(const std::string& name) const {
  const auto found = body.find(name);
  return found == body.end() ? std::nullopt : std::optional(found->get<std::string>());
}

Json Paging::Page(std::size_t total, Json results) const {
  return {{"skip", skip}, {"limit", std::min(limit, total)}, {"total", total}, {"results", std::move(results)}};
}

Paging PagingOf(const Call& call) {
  Paging paging;
  const auto number = [&call](const char* name, std::size_t fallback) {
    const std::string text = call.Query(name);
    return text.empty() ? fallback : static_cast<std::size_t>(std::stoull(text)); // its form was checked
  };
  paging.skip = number("skip", paging.skip);
  paging.limit = call.Query("limit") == "all" ? 0x7fffffff : number("limit", paging.limit);
  return paging;
}

std::string PathOfEntry(const TargetForm& form, const std::string& collection, const std::string& id) {
  constexpr std::string_view Raw = "-._~!$&'()*+,=:@"; // of a path segment, beside letters and digits (RFC 3986)
  constexpr std::string_view Digits = "0123456789ABCDEF";
  std::string path = collection + "/";
  for (const char character : id) {
    const auto byte = static_cast<unsigned char>(character);
    const bool is_letter = (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z');
    if (is_letter || (byte >= '0' && byte <= '9') || Raw.find(character) != std::string_view::npos) {
      path += character;
    } else {
      path += {'%', Digits[byte >> 4U], Digits[byte & 15U]};
    }
  }
  return form.Fault(path).empty() && !id.empty() ? path : std::string();
}

} // namespace Host
