#include "host/http/Target.h"

#include <optional>

#include "TN_util.h"
#include "directory/Failure.h"
#include "directory/text/Text.h"

namespace Host {

namespace {

constexpr std::size_t EncodedBytes = 3; // "%2F"

bool IsAlphanumeric(unsigned char byte) noexcept {
  return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || (byte >= '0' && byte <= '9');
}

bool IsOneOf(unsigned char byte, std::string_view set) noexcept {
  return set.find(static_cast<char>(byte)) != std::string_view::npos;
}

/// RFC 3986: unreserved / sub-delims / ":" / "@".
bool IsSegmentCharacter(unsigned char byte) noexcept {
  return IsAlphanumeric(byte) || IsOneOf(byte, "-._~!$&'()*+,;=:@");
}

bool IsControl(unsigned char byte) noexcept {
  return byte < 0x20 || byte == 0x7f;
}

/// What stands raw in a normal path, or would split or end it once decoded.
bool MustNotBeEncoded(unsigned char byte) noexcept {
  return IsSegmentCharacter(byte) || IsOneOf(byte, "/\\%?#") || IsControl(byte);
}

int UpperHexadecimal(char digit) noexcept {
  return digit >= '0' && digit <= '9' ? digit - '0' : digit >= 'A' && digit <= 'F' ? digit - 'A' + 10 : -1;
}

/// The byte that the three characters at `position` encode, or -1.
int EncodedByte(std::string_view text, std::size_t position) noexcept {
  if (text.size() - position < EncodedBytes || text[position] != '%') {
    return -1;
  }
  const int high = UpperHexadecimal(text[position + 1]);
  const int low = UpperHexadecimal(text[position + 2]);
  return high < 0 || low < 0 ? -1 : high * 16 + low;
}

bool IsDots(std::string_view segment) noexcept {
  return segment == "." || segment == "..";
}

/// Calls `visit` with each piece of `text` between the separators until one call gives true; whether one did.
template <class Visit> bool AnyPiece(std::string_view text, std::string_view separators, Visit visit) {
  for (;;) {
    const std::size_t end = text.find_first_of(separators);
    if (visit(text.substr(0, end), end == std::string_view::npos)) {
      return true;
    }
    if (end == std::string_view::npos) {
      return false;
    }
    text.remove_prefix(end + 1);
  }
}

/// Decodes what is percent-encoded, in either letter case, until nothing changes any more; no text when that takes
/// longer than any application decodes.
std::optional<std::string> FullyDecoded(std::string text) {
  constexpr int Passes = 8;
  for (int pass = 0; pass < Passes; ++pass) {
    std::string decoded;
    for (std::size_t i = 0; i < text.size(); ++i) {
      Tarn::byte_t byte = 0;
      unsigned count = 0;
      if (text[i] == '%' && text.size() - i >= EncodedBytes &&
          Tarn::hex2bin(text.substr(i + 1, EncodedBytes - 1).c_str(), &byte, 1, &count) == 0) {
        decoded += static_cast<char>(byte);
        i += EncodedBytes - 1;
      } else {
        decoded += text[i];
      }
    }
    if (decoded.size() == text.size()) {
      return text;
    }
    text = std::move(decoded);
  }
  return std::nullopt;
}

std::string_view BeforeSemicolon(std::string_view segment) noexcept {
  return segment.substr(0, segment.find(';'));
}

} // namespace

std::string_view PathOf(std::string_view target) noexcept {
  return target.substr(0, target.find('?'));
}

std::string_view QueryOf(std::string_view target) noexcept {
  const std::size_t mark = target.find('?');
  return mark == std::string_view::npos ? std::string_view() : target.substr(mark + 1);
}

TargetForm::TargetForm(const std::vector<std::string>& allows) {
  for (const std::string& spelling : allows) {
    const int byte = spelling.size() == EncodedBytes ? EncodedByte(spelling, 0) : -1;
    if (spelling == ";") {
      m_AllowsSemicolon = true;
    } else if (byte >= 0 && byte != '.' && !IsControl(static_cast<unsigned char>(byte))) {
      m_AllowedEncoded[static_cast<std::size_t>(byte)] = true;
    } else {
      throw AccessDirectory::Failure(
          AccessDirectory::Failure::Kind::Input,
          AccessDirectory::Quoted(spelling) +
              R"( cannot be allowed in targets: accepted are ";" and "%" with the two upper-case hexadecimal digits )"
              "of a byte that is neither a control character nor a dot, such as \"%2F\"");
    }
    m_AllowsAny = true;
  }
}

std::string TargetForm::Fault(std::string_view target) const {
  const std::string_view path = PathOf(target);
  if (path.empty() || path.front() != '/') {
    return "it does not begin with \"/\"";
  }
  if (const char* const fault = FaultOfBytes(path)) {
    return fault;
  }
  if (const char* const fault = FaultOfSegments(path)) {
    return fault;
  }
  for (const char character : QueryOf(target)) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte <= 0x20 || byte >= 0x7f || byte == '#') {
      return "its query holds a byte that is not visible ASCII, or a \"#\"";
    }
  }
  return {};
}

const char* TargetForm::FaultOfBytes(std::string_view path) const {
  for (std::size_t i = 0; i < path.size(); ++i) {
    const auto byte = static_cast<unsigned char>(path[i]);
    if (byte == ';' && !m_AllowsSemicolon) {
      return "its path holds a \";\"";
    }
    if (byte == '%') {
      const int encoded = EncodedByte(path, i);
      if (encoded < 0) {
        return "its path holds a \"%\" without two upper-case hexadecimal digits";
      }
      if (MustNotBeEncoded(static_cast<unsigned char>(encoded)) && !Allows(static_cast<unsigned char>(encoded))) {
        return "its path holds a percent-encoded character that stands for itself, separates or controls";
      }
      i += EncodedBytes - 1;
    } else if (byte != '/' && !IsSegmentCharacter(byte)) {
      return "its path holds a byte that has to be percent-encoded";
    }
  }
  return nullptr;
}

const char* TargetForm::FaultOfSegments(std::string_view path) const {
  const char* fault = nullptr;
  AnyPiece(path.substr(1), "/", [&](std::string_view segment, bool is_last) {
    const std::string_view name = BeforeSemicolon(segment);
    if (name.empty() && !(is_last && segment.empty())) {
      fault = "its path has an empty segment";
    } else if (IsDots(name)) {
      fault = "its path has a \".\" or \"..\" segment";
    }
    return fault != nullptr;
  });
  const auto is_dots = [](std::string_view segment, bool) { return IsDots(BeforeSemicolon(segment)); };
  // What an application makes of the allowed spellings must not climb either, however often it decodes.
  if (fault == nullptr && m_AllowsAny && path.find('%') != std::string_view::npos) {
    const std::optional<std::string> decoded = FullyDecoded(std::string(path));
    if (!decoded || AnyPiece(*decoded, "/\\", is_dots)) {
      fault = "its path has, once decoded, a \".\" or \"..\" segment";
    }
  }
  return fault;
}

} // namespace Host
