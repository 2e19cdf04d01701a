#include "host/http/Answer.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <ctime>

namespace Host {

namespace {

struct Reason {
  unsigned status;
  const char* text;
};

constexpr Reason Reasons[] = {
    {200, "OK"},
    {201, "Created"},
    {202, "Accepted"},
    {204, "No Content"},
    {301, "Moved Permanently"},
    {302, "Found"},
    {303, "See Other"},
    {304, "Not Modified"},
    {307, "Temporary Redirect"},
    {308, "Permanent Redirect"},
    {400, "Bad Request"},
    {401, "Unauthorized"},
    {403, "Forbidden"},
    {404, "Not Found"},
    {405, "Method Not Allowed"},
    {406, "Not Acceptable"},
    {408, "Request Timeout"},
    {409, "Conflict"},
    {411, "Length Required"},
    {412, "Precondition Failed"},
    {413, "Content Too Large"},
    {414, "URI Too Long"},
    {415, "Unsupported Media Type"},
    {417, "Expectation Failed"},
    {422, "Unprocessable Content"},
    {429, "Too Many Requests"},
    {431, "Request Header Fields Too Large"},
    {500, "Internal Server Error"},
    {501, "Not Implemented"},
    {503, "Service Unavailable"},
    {505, "HTTP Version Not Supported"},
};

constexpr std::string_view OwnFields[] = {"Content-Length", "Date", "Connection", "Transfer-Encoding"};

const char* ReasonOf(unsigned status) noexcept {
  for (const auto& reason : Reasons) {
    if (reason.status == status) {
      return reason.text;
    }
  }
  return "";
}

void AppendNumber(std::string& out, std::size_t number) {
  std::array<char, 24> digits{};
  auto* const end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
  out.append(digits.data(), end);
}

bool Sendable(const Field& field) noexcept {
  const auto token = [](char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '-' || c == '_';
  };
  // Nearly every value is looked at to its end: without a branch for each byte.
  unsigned controls = 0;
  for (const char c : field.value) {
    const auto byte = static_cast<unsigned char>(c);
    controls |=
        (static_cast<unsigned>(byte < ' ') & static_cast<unsigned>(byte != '\t')) | static_cast<unsigned>(byte == 0x7f);
  }
  if (controls != 0 || field.name.empty() || !std::all_of(field.name.begin(), field.name.end(), token)) {
    return false;
  }
  return std::none_of(std::begin(OwnFields), std::end(OwnFields),
                      [&](std::string_view own) { return EqualIgnoringCase(field.name, own); });
}

} // namespace

bool AppendAnswer(std::string& out, const Response& response, bool to_head, Persistence persistence,
                  std::string_view date) {
  if (response.status < 200 || response.status > 599 ||
      !std::all_of(response.fields.begin(), response.fields.end(), Sendable)) {
    return false;
  }
  out += "HTTP/1.1 ";
  AppendNumber(out, response.status);
  out += ' ';
  out += ReasonOf(response.status);
  out += "\r\nDate: ";
  out += date;
  const bool bare = response.status == 204 || response.status == 304;
  if (!bare) {
    out += "\r\nContent-Length: ";
    AppendNumber(out, response.body.size());
  }
  if (persistence == Persistence::Close) {
    out += "\r\nConnection: close";
  } else if (persistence == Persistence::KeepAnnounced) {
    out += "\r\nConnection: keep-alive";
  }
  for (const auto& field : response.fields) {
    out += "\r\n";
    out += field.name;
    out += ": ";
    out += field.value;
  }
  out += "\r\n\r\n";
  if (!bare && !to_head) {
    out += response.body;
  }
  return true;
}

Response PlainAnswer(unsigned status) {
  Response response;
  response.status = status;
  response.fields = {{"Content-Type", "text/plain"}};
  response.body = std::to_string(status) + " " + ReasonOf(status) + "\n";
  response.close = true;
  return response;
}

std::string_view DateText::Now() {
  static constexpr const char* Days[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  static constexpr const char* Months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                           "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  timespec now{};
  ::clock_gettime(CLOCK_REALTIME_COARSE, &now);
  if (now.tv_sec == m_Second) {
    return m_Text;
  }
  m_Second = now.tv_sec;
  std::tm parts{};
  ::gmtime_r(&now.tv_sec, &parts);
  std::array<char, 64> text{};
  (void)std::snprintf(text.data(), text.size(), "%s, %02d %s %04d %02d:%02d:%02d GMT", Days[parts.tm_wday],
                      parts.tm_mday, Months[parts.tm_mon], parts.tm_year + 1900, parts.tm_hour, parts.tm_min,
                      parts.tm_sec);
  m_Text = text.data();
  return m_Text;
}

} // namespace Host
