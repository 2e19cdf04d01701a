#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

namespace Host {

/// Puts together one line of a log: a JSON object (RFC 8259) in ASCII, so that no text in it drives a terminal. Made
/// for being cheap: nothing is allocated once the text that it fills has grown.
class JsonLine {
public:
  /// Fills `line` anew.
  explicit JsonLine(std::string& line) : m_Line(line) { m_Line.assign(1, '{'); }

  /// A text; one that is not UTF-8 as {"base64": "..."}. `name` is written as it is.
  JsonLine& Text(std::string_view name, std::string_view value);
  JsonLine& Number(std::string_view name, std::uint64_t value);
  JsonLine& Flag(std::string_view name, bool value);
  JsonLine& Null(std::string_view name);
  /// JSON in ASCII, on one line.
  JsonLine& Raw(std::string_view name, std::string_view json);
  /// "2026-01-31T12:00:00.123+00:00", UTC (RFC 3339).
  JsonLine& Time(std::string_view name, std::chrono::system_clock::time_point time);
  /// Members until `Close` belong to an object.
  JsonLine& Open(std::string_view name);
  JsonLine& Close();

  /// Completes the line, with its line end.
  const std::string& Finish();

private:
  void Name(std::string_view name);

  std::string& m_Line;
};

} // namespace Host
