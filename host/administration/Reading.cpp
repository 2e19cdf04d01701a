#include "host/administration/Reading.h"

#include <algorithm>
#include <set>

#include "PN_PagedResults.h"

namespace Host {

namespace {

using AccessDirectory::Json;
using AccessDirectory::Quoted;

constexpr int DeepestNesting = 16;
constexpr std::size_t MostDigits = 9;

int HexDigit(char character) noexcept {
  const char lower = static_cast<char>(character | 0x20);
  return character >= '0' && character <= '9' ? character - '0' : lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

std::string FormDecoded(std::string_view text) {
  std::string decoded;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      decoded += text[i] == '+' ? ' ' : text[i];
      continue;
    }
    const int high = i + 2 < text.size() ? HexDigit(text[i + 1]) : -1;
    const int low = i + 2 < text.size() ? HexDigit(text[i + 2]) : -1;
    if (high < 0 || low < 0) {
      Refuse(400, "the query holds a \"%\" without two hexadecimal digits");
    }
    decoded += static_cast<char>(high * 16 + low);
    i += 2;
  }
  if (decoded.find('\0') != std::string::npos) {
    Refuse(400, "the query holds a NUL");
  }
  return decoded;
}

bool IsNumber(const std::string& text) {
  return !text.empty() && text.size() <= MostDigits &&
         std::all_of(text.begin(), text.end(), [](char digit) { return digit >= '0' && digit <= '9'; });
}

void RequireForm(const Member& parameter, const std::string& value) {
  const std::string_view type = parameter.type;
  const bool is_limit = IsNumber(value) || value == Perenna::PagedResults::all;
  const char* const accepted = type == "boolean" && value != "true" && value != "false" ? "\"true\" or \"false\""
                               : type == "skip" && !IsNumber(value)                     ? "a whole number"
                               : type == "limit" && !is_limit                           ? "a whole number or \"all\""
                                                                                        : nullptr;
  if (accepted != nullptr) {
    Refuse(400, "the parameter \"" + std::string(parameter.name) + "\" is " + Quoted(value) + ", not " + accepted);
  }
}

/// Parses; names that occur twice in an object, and nesting beyond all need, are refused.
Json Parse(const std::string& text) {
  std::vector<std::set<std::string>> names;
  const Json::parser_callback_t look = [&names](int depth, Json::parse_event_t event, Json& parsed) {
    if (depth > DeepestNesting) {
      Refuse(400, "the body is nested too deeply");
    }
    if (event == Json::parse_event_t::object_start) {
      names.emplace_back();
    } else if (event == Json::parse_event_t::object_end) {
      names.pop_back();
    } else if (event == Json::parse_event_t::key && !names.back().insert(parsed.get<std::string>()).second) {
      Refuse(400, "the body has the member " + Quoted(parsed.get<std::string>()) + " twice");
    }
    return true;
  };
  try {
    return Json::parse(text, look);
  } catch (const Json::parse_error& error) { // its text quotes the body, which may hold a password
    Refuse(400, "the body is not JSON: it goes wrong at byte " + std::to_string(error.byte));
  }
}

void RequireText(const std::string& name, const Json& value) {
  if (!value.is_string()) {
    Refuse(400, "the member \"" + name + "\" is not a text");
  }
  if (value.get_ref<const std::string&>().find('\0') != std::string::npos) {
    Refuse(400, "the member \"" + name + "\" holds a NUL");
  }
}

void RequireTexts(const std::string& name, const Json& value) {
  if (!value.is_array()) {
    Refuse(400, "\"" + name + "\" is not an array");
  }
  for (const Json& item : value) {
    RequireText(name, item);
  }
}

void RequireMembers(const std::vector<Member>& members, const Json& object) {
  if (!object.is_object()) {
    Refuse(400, "the body is not an object");
  }
  for (const auto& [name, value] : object.items()) {
    const auto known = std::find_if(members.begin(), members.end(),
                                    [&key = name](const Member& member) { return key == member.name; });
    if (known == members.end()) {
      std::string names;
      for (const Member& member : members) {
        names += (names.empty() ? "" : ", ") + std::string(member.name);
      }
      Refuse(400, "the body has the unknown member " + Quoted(name) + "; known are: " + names);
    }
    if (std::string_view(known->type) == "array") {
      RequireTexts(name, value);
    } else {
      RequireText(name, value);
    }
  }
  for (const Member& member : members) {
    if (member.required && !object.contains(member.name)) {
      Refuse(400, "the body has no member \"" + std::string(member.name) + "\"");
    }
  }
}

/// One media type, application/json, in any letter case, with or without parameters.
void RequireJson(const Request& request) {
  const std::string* const field = request.Find("Content-Type");
  std::string type = field == nullptr ? std::string() : field->substr(0, field->find(';'));
  type.erase(type.find_last_not_of(" \t") + 1);
  if (request.Count("Content-Type") != 1 || !EqualIgnoringCase(type, "application/json")) {
    Refuse(415, "the body must be application/json, and Content-Type say so");
  }
}

} // namespace

std::map<std::string, std::string> ReadQuery(const Route& route, std::string_view query) {
  std::map<std::string, std::string> parameters;
  for (std::size_t begin = 0; begin < query.size();) {
    const std::size_t end = std::min(query.find('&', begin), query.size());
    const std::string_view pair = query.substr(begin, end - begin);
    begin = end + 1;
    const std::size_t equals = std::min(pair.find('='), pair.size());
    const std::string name = FormDecoded(pair.substr(0, equals));
    const auto known = std::find_if(route.query.begin(), route.query.end(),
                                    [&name](const Member& parameter) { return name == parameter.name; });
    if (known == route.query.end()) {
      Refuse(400, "the query has the unknown parameter " + Quoted(name));
    }
    if (equals == pair.size()) {
      Refuse(400, "the parameter " + Quoted(name) + " has no value");
    }
    const std::string value = FormDecoded(pair.substr(equals + 1));
    RequireForm(*known, value);
    if (!parameters.emplace(name, value).second) {
      Refuse(400, "the query has the parameter " + Quoted(name) + " twice");
    }
  }
  for (const Member& parameter : route.query) {
    if (parameter.required && parameters.count(parameter.name) == 0) {
      Refuse(400, "the query has no parameter \"" + std::string(parameter.name) + "\"");
    }
  }
  return parameters;
}

Json ReadBody(const Route& route, const Request& request) {
  if (route.form == BodyForm::None) {
    return nullptr;
  }
  RequireJson(request);
  if (route.form == BodyForm::Directory) {
    return nullptr;
  }
  Json body = Parse(request.body);
  if (route.form == BodyForm::Object) {
    RequireMembers(route.members, body);
  } else if (route.form == BodyForm::Ids) {
    RequireTexts("body", body);
  } else if (!body.is_array()) {
    Refuse(400, "the body is not an array");
  }
  return body;
}

} // namespace Host
