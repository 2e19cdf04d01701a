#include "host/log/JsonLine.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <ctime>

#include "directory/text/Text.h"

namespace Host {

namespace {

/// Whether a byte stands in a JSON text as it is.
bool IsPlain(char c) noexcept {
  return c >= ' ' && c <= '~' && c != '"' && c != '\\';
}

struct Stamp {
  std::time_t second = -1;
  std::array<char, 32> text{}; // "2026-01-31T12:00:00"
  std::size_t size = 0;
};

/// The second as text; made once a second on each thread.
std::string_view SecondText(std::time_t second) {
  thread_local Stamp stamp;
  if (stamp.second != second) {
    std::tm parts = {};
    gmtime_r(&second, &parts);
    stamp.size = std::strftime(stamp.text.data(), stamp.text.size(), "%Y-%m-%dT%H:%M:%S", &parts);
    stamp.second = second;
  }
  return {stamp.text.data(), stamp.size};
}

} // namespace

void JsonLine::Name(std::string_view name) {
  m_Line.append(m_Line.back() == '{' ? "\"" : ",\"").append(name).append("\":");
}

JsonLine& JsonLine::Text(std::string_view name, std::string_view value) {
  Name(name);
  const std::size_t begin = m_Line.size();
  m_Line += '"';
  const auto* from = value.begin();
  const auto* plain_end = std::find_if_not(from, value.end(), IsPlain);
  while (plain_end != value.end() && (*plain_end == '"' || *plain_end == '\\')) {
    m_Line.append(from, plain_end).append(1, '\\');
    from = plain_end;
    plain_end = std::find_if_not(plain_end + 1, value.end(), IsPlain);
  }
  m_Line.append(from, plain_end) += '"';
  if (plain_end != value.end()) { // what is neither printable nor escaped in one way takes its time
    m_Line.resize(begin);
    std::string text = AccessDirectory::JsonText(std::string(value)).dump(-1, ' ', true);
    // JSON leaves DEL bare.
    for (std::size_t at = text.find('\x7f'); at != std::string::npos; at = text.find('\x7f', at)) {
      text.replace(at, 1, "\\u007f");
    }
    m_Line += text;
  }
  return *this;
}

JsonLine& JsonLine::Raw(std::string_view name, std::string_view json) {
  Name(name);
  m_Line += json;
  return *this;
}

JsonLine& JsonLine::Number(std::string_view name, std::uint64_t value) {
  Name(name);
  std::array<char, 20> digits{}; // of the largest value
  auto* const end = std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
  m_Line.append(digits.data(), end);
  return *this;
}

JsonLine& JsonLine::Flag(std::string_view name, bool value) {
  Name(name);
  m_Line += value ? "true" : "false";
  return *this;
}

JsonLine& JsonLine::Null(std::string_view name) {
  Name(name);
  m_Line += "null";
  return *this;
}

JsonLine& JsonLine::Time(std::string_view name, std::chrono::system_clock::time_point time) {
  using std::chrono::milliseconds;
  const auto since_epoch = std::chrono::duration_cast<milliseconds>(time.time_since_epoch()).count();
  const auto thousandths = static_cast<unsigned>(since_epoch % 1000);
  Name(name);
  const std::array<char, 4> digits = {'.', static_cast<char>('0' + thousandths / 100),
                                      static_cast<char>('0' + thousandths / 10 % 10),
                                      static_cast<char>('0' + thousandths % 10)};
  m_Line.append(1, '"').append(SecondText(since_epoch / 1000)).append(digits.data(), digits.size());
  m_Line += "+00:00\"";
  return *this;
}

JsonLine& JsonLine::Open(std::string_view name) {
  Name(name);
  m_Line += '{';
  return *this;
}

JsonLine& JsonLine::Close() {
  m_Line += '}';
  return *this;
}

const std::string& JsonLine::Finish() {
  return m_Line += "}\n";
}

} // namespace Host
