#include "directory/replay/RequestLog.h"

#include <algorithm>
#include <array>

#include "directory/text/Text.h"

namespace AccessDirectory {

namespace {

using Unjudged = LoggedRequest::Unjudged;

LoggedRequest Skipped(Unjudged why) {
  LoggedRequest request;
  request.unjudged = why;
  return request;
}

std::optional<std::string> MemberOf(const Json& object, const char* name) {
  const auto found = object.find(name);
  return found == object.end() ? std::nullopt : TextOfJson(*found);
}

LoggedRequest ReadDecision(const std::string& line) {
  const Json json = Json::parse(line, nullptr, false);
  if (!json.is_object()) {
    return Skipped(Unjudged::NotReadable);
  }
  const auto outcome = MemberOf(json, "outcome");
  const auto user_id = MemberOf(json, "user_id");
  const auto method = MemberOf(json, "method");
  const auto path = MemberOf(json, "path");
  if (!outcome || !user_id || !method || !path) {
    return Skipped(Unjudged::NotReadable);
  }
  LoggedRequest request;
  request.user_id = *user_id;
  request.method_text = *method;
  request.target = *path;
  request.allowed = *outcome == "allowed";
  if (const auto decider = json.find("decider"); decider != json.end() && decider->is_object()) {
    request.decider = GroupFilter{MemberOf(*decider, "group_id").value_or(""),
                                  MemberOf(*decider, "filter").value_or(""), MemberOf(*decider, "action").value_or("")};
  }
  // Allowed without a filter: by the bypass, without a look at the directory.
  const bool bypassed = request.allowed && !request.decider && request.user_id.empty();
  request.unjudged = *outcome == "unauthenticated"                             ? Unjudged::Unauthenticated
                     : bypassed || (!request.allowed && *outcome != "refused") ? Unjudged::NotDecided
                                                                               : Unjudged::None;
  return request;
}

/// Takes back how nginx writes a byte that is not printable, or is a quote or a backslash: "\xHH".
std::string Unescaped(const std::string& text) {
  const auto digit = [](char byte) -> int {
    return byte >= '0' && byte <= '9' ? byte - '0' : byte >= 'A' && byte <= 'F' ? byte - 'A' + 10 : -1;
  };
  std::string plain;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text.compare(at, 2, "\\x") == 0 && at + 3 < text.size() && digit(text[at + 2]) >= 0 &&
        digit(text[at + 3]) >= 0) {
      plain += static_cast<char>(digit(text[at + 2]) * 16 + digit(text[at + 3]));
      at += 3;
    } else {
      plain += text[at];
    }
  }
  return plain;
}

bool SaysNothing(int status) {
  constexpr std::array<int, 6> Others = {400, 408, 413, 414, 429, 444};
  return status < 100 || (status >= 494 && status <= 499) || status >= 500 ||
         std::find(Others.begin(), Others.end(), status) != Others.end();
}

/// ADDRESS - USER [TIME] "METHOD TARGET PROTOCOL" STATUS BYTES "REFERER" "AGENT"
LoggedRequest ReadCombined(const std::string& line) {
  constexpr auto None = std::string::npos;
  const std::size_t user = line.find(" - ");
  const std::size_t time = user == None ? None : line.find(" [", user + 3);
  const std::size_t begin = time == None ? None : line.find("] \"", time);
  const std::size_t end = begin == None ? None : line.find("\" ", begin + 3);
  if (end == None || end + 5 > line.size()) {
    return Skipped(Unjudged::NotReadable);
  }
  int status = 0;
  for (std::size_t at = end + 2; at < end + 5; ++at) {
    if (line[at] < '0' || line[at] > '9') {
      return Skipped(Unjudged::NotReadable);
    }
    status = status * 10 + (line[at] - '0');
  }
  LoggedRequest request;
  request.whole_target = true;
  request.user_id = Unescaped(line.substr(user + 3, time - user - 3));
  request.user_id = request.user_id == "-" ? "" : request.user_id;
  request.allowed = status != 403;
  const std::string text = line.substr(begin + 3, end - begin - 3);
  const std::size_t first = text.find(' ');
  const std::size_t last = text.rfind(' ');
  if (first == None || first == last) {
    return Skipped(Unjudged::NotDecided); // what was no request: nginx logs it as "400"
  }
  request.method_text = text.substr(0, first);
  request.target = Unescaped(text.substr(first + 1, last - first - 1));
  request.unjudged = status == 401         ? Unjudged::Unauthenticated
                     : SaysNothing(status) ? Unjudged::NotDecided
                                           : Unjudged::None;
  return request;
}

} // namespace

const char* UnjudgedText(LoggedRequest::Unjudged unjudged) {
  constexpr std::array<const char*, UnjudgedCount> Names = {"", "unauthenticated", "not decided", "unknown method",
                                                            "not readable"};
  return Names.at(static_cast<std::size_t>(unjudged));
}

LoggedRequest ReadLogLine(const std::string& line) {
  LoggedRequest request = line.front() == '{' ? ReadDecision(line) : ReadCombined(line);
  if (request.unjudged == Unjudged::None && !Perenna::StringToMethod(request.method_text, request.method)) {
    request.unjudged = Unjudged::NoMethod;
  }
  return request;
}

RequestLog::RequestLog(const std::string& name, Progress& progress) : m_Input(name, progress), m_Stream(&m_Input) {
  m_Stream.exceptions(std::ios::badbit); // what the input throws comes through
}

bool RequestLog::Next(LoggedRequest& request) {
  while (std::getline(m_Stream, m_Line)) {
    if (!m_Line.empty() && m_Line.back() == '\r') {
      m_Line.pop_back();
    }
    if (!m_Line.empty()) {
      request = ReadLogLine(m_Line);
      return true;
    }
  }
  return false;
}

bool RequestLines::Next(LoggedRequest& request) {
  if (m_Next == m_Lines.size()) {
    return false;
  }
  request = ReadLogLine(m_Lines[m_Next++]);
  return true;
}

} // namespace AccessDirectory
