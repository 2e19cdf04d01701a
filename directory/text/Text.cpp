#include "directory/text/Text.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <vector>

#include "TN_util.h"

namespace AccessDirectory {

namespace {

/// The length in bytes of the UTF-8 character at `position`, with its code point; 0 where the bytes are not UTF-8.
std::size_t Character(const std::string& text, std::size_t position, unsigned& code_point) noexcept {
  const auto byte = [&text](std::size_t index) -> unsigned {
    return index < text.size() ? static_cast<unsigned char>(text[index]) : 0U;
  };
  const unsigned lead = byte(position);
  if (lead < 0x80) {
    code_point = lead;
    return 1;
  }
  const std::size_t length = lead >= 0xf0 && lead <= 0xf4 ? 4 : lead >= 0xe0 ? 3 : lead >= 0xc2 ? 2 : 0;
  if (length == 0 || lead > 0xf4) {
    return 0;
  }
  code_point = lead & (0xffU >> (length + 1));
  for (std::size_t i = 1; i < length; ++i) {
    const unsigned next = byte(position + i);
    if ((next & 0xc0U) != 0x80U) {
      return 0;
    }
    code_point = (code_point << 6U) | (next & 0x3fU);
  }
  constexpr std::array<unsigned, 5> Least = {0, 0, 0x80, 0x800, 0x10000};
  const bool surrogate = code_point >= 0xd800 && code_point <= 0xdfff;
  return code_point < Least.at(length) || code_point > 0x10ffff || surrogate ? 0 : length;
}

std::string Escape(const char* format, unsigned value) {
  std::array<char, 16> buffer{};
  static_cast<void>(std::snprintf(buffer.data(), buffer.size(), format, value));
  return buffer.data();
}

std::string Ascii(unsigned code_point, Backslash backslash) {
  switch (code_point) {
  case '\n':
    return "\\n";
  case '\t':
    return "\\t";
  case '\r':
    return "\\r";
  case '\\':
    return backslash == Backslash::Doubled ? "\\\\" : "\\";
  default:
    break;
  }
  if (code_point < 0x20 || code_point == 0x7f) {
    return Escape("\\x%02x", code_point);
  }
  const auto byte = static_cast<char>(code_point);
  return {&byte, 1};
}

} // namespace

std::string Shown(const std::string& text, Backslash backslash) {
  std::string shown;
  for (std::size_t i = 0; i < text.size();) {
    unsigned code_point = 0;
    const std::size_t length = Character(text, i, code_point);
    if (length == 0) {
      shown += Escape("\\x%02x", static_cast<unsigned char>(text[i]));
    } else {
      shown += length == 1 ? Ascii(code_point, backslash) : Escape("\\u{%x}", code_point);
    }
    i += std::max<std::size_t>(length, 1);
  }
  return shown;
}

std::string Quoted(const std::string& text) {
  return '"' + Shown(text) + '"';
}

bool IsUtf8(const std::string& text) noexcept {
  unsigned code_point = 0;
  for (std::size_t i = 0; i < text.size();) {
    const std::size_t length = Character(text, i, code_point);
    if (length == 0) {
      return false;
    }
    i += length;
  }
  return true;
}

Json JsonText(const std::string& text) {
  if (IsUtf8(text)) {
    return text;
  }
  std::string encoded(Tarn::base64_buffer_size(text.size()), '\0');
  Tarn::base64encode(reinterpret_cast<const Tarn::byte_t*>(text.data()), static_cast<unsigned>(text.size()),
                     encoded.data(), static_cast<unsigned>(encoded.size()));
  encoded.pop_back(); // the terminator
  return Json{{"base64", encoded}};
}

std::optional<std::string> TextOfJson(const Json& json) {
  if (json.is_string()) {
    return json.get<std::string>();
  }
  const auto base64 = json.is_object() && json.size() == 1 ? json.find("base64") : json.end();
  if (!json.is_object() || base64 == json.end() || !base64->is_string()) {
    return std::nullopt;
  }
  const std::string text = base64->get<std::string>();
  std::string bytes(text.size(), '\0');
  unsigned count = 0;
  if (text.find('\0') != std::string::npos ||
      Tarn::base64decode(text.c_str(), reinterpret_cast<Tarn::byte_t*>(bytes.data()),
                         static_cast<unsigned>(bytes.size()), &count) != 0) {
    return std::nullopt;
  }
  bytes.resize(count);
  return bytes;
}

std::string Count(std::size_t number, const std::string& noun) {
  return std::to_string(number) + " " + noun + (number == 1 ? "" : "s");
}

std::size_t EditDistance(const std::string& left, const std::string& right) {
  std::vector<std::vector<std::size_t>> cost(left.size() + 1, std::vector<std::size_t>(right.size() + 1));
  for (std::size_t i = 0; i <= left.size(); ++i) {
    for (std::size_t j = 0; j <= right.size(); ++j) {
      if (i == 0 || j == 0) {
        cost[i][j] = i + j;
        continue;
      }
      const std::size_t replace = cost[i - 1][j - 1] + (left[i - 1] == right[j - 1] ? 0 : 1);
      cost[i][j] = std::min({cost[i - 1][j] + 1, cost[i][j - 1] + 1, replace});
      if (i > 1 && j > 1 && left[i - 1] == right[j - 2] && left[i - 2] == right[j - 1]) {
        cost[i][j] = std::min(cost[i][j], cost[i - 2][j - 2] + 1);
      }
    }
  }
  return cost[left.size()][right.size()];
}

} // namespace AccessDirectory
