#include "host/administration/Call.h"

#include <algorithm>
#include <array>

#include "PN_PagedResults.h"
#include "host/http/TargetRules.h"

namespace Host {

using AccessDirectory::Json;

namespace {

/// Of a parameter's text, whose form was checked.
std::size_t Number(const std::string& text, std::size_t fallback) {
  return text.empty() ? fallback : static_cast<std::size_t>(std::stoull(text));
}

} // namespace

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
  paging.skip = Number(call.Query("skip"), paging.skip);
  paging.limit = LimitOf(call, paging.limit);
  return paging;
}

std::size_t LimitOf(const Call& call, std::size_t fallback) {
  const std::string limit = call.Query("limit");
  return limit == Perenna::PagedResults::all ? Perenna::PagedResults::RS_MAXROWS : Number(limit, fallback);
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
