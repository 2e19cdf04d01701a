#include "host/configuration/Values.h"

#include <algorithm>
#include <charconv>
#include <string_view>
#include <vector>

#include <grp.h>
#include <pwd.h>

#include "directory/text/Vocabulary.h"

namespace Host {

namespace {

constexpr std::string_view UnixPrefix = "unix:";
constexpr std::size_t LongestRealm = 200;
constexpr std::size_t RecordBytes = 65536; // of one entry of the system's users or groups

bool StartsWith(const std::string& text, std::string_view prefix) noexcept {
  return text.compare(0, prefix.size(), prefix) == 0;
}

template <typename Number> bool ParseNumber(std::string_view text, Number& number) noexcept {
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && stop == text.data() + text.size();
}

bool IsControl(char c) noexcept {
  return static_cast<unsigned char>(c) < 0x20 || c == 0x7f;
}

bool ParseUser(const std::string& text, uid_t& user) {
  passwd record = {};
  passwd* found = nullptr;
  std::vector<char> buffer(RecordBytes);
  if (getpwnam_r(text.c_str(), &record, buffer.data(), buffer.size(), &found) == 0 && found != nullptr) {
    user = record.pw_uid;
    return true;
  }
  return ParseNumber(text, user) && user != static_cast<uid_t>(-1);
}

} // namespace

bool ParsePeer(const std::string& text, ProxyPeer& peer) {
  ProxyPeer parsed;
  if (StartsWith(text, UnixPrefix)) {
    parsed.kind = ProxyPeer::Kind::UnixUser;
    if (!ParseUser(text.substr(UnixPrefix.size()), parsed.user)) {
      return false;
    }
  } else if (text != "unix") {
    const std::optional<Network> network = Network::Parse(text);
    if (!network) {
      return false;
    }
    parsed.kind = ProxyPeer::Kind::Network;
    parsed.network = *network;
  }
  peer = parsed;
  return true;
}

bool IsAllowedSpelling(const std::string& text) noexcept {
  constexpr std::string_view Digits = "0123456789ABCDEF";
  if (text.size() != 3 || text[0] != '%') {
    return text == ";";
  }
  const std::size_t high = Digits.find(text[1]);
  const std::size_t low = Digits.find(text[2]);
  return high != std::string_view::npos && low != std::string_view::npos && high >= 2 && text != "%2E" && text != "%7F";
}

bool IsFieldName(const std::string& text) noexcept {
  constexpr std::string_view Marks = "!#$%&'*+-.^_`|~";
  return !text.empty() && std::all_of(text.begin(), text.end(), [Marks](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           Marks.find(c) != std::string_view::npos;
  });
}

bool IsRealm(const std::string& text) noexcept {
  return !text.empty() && text.size() <= LongestRealm &&
         std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~' && c != '"' && c != '\\'; });
}

bool IsCarriedUserId(const std::string& text) noexcept {
  return !text.empty() && text.front() != ' ' && text.back() != ' ' &&
         std::none_of(text.begin(), text.end(), IsControl);
}

bool IsSystemGroup(const std::string& text) {
  group record = {};
  group* found = nullptr;
  std::vector<char> buffer(RecordBytes);
  return getgrnam_r(text.c_str(), &record, buffer.data(), buffer.size(), &found) == 0 && found != nullptr;
}

bool IsBypassPattern(const std::string& pattern) {
  if (pattern.empty() || pattern.front() != '^' || pattern.find('\0') != std::string::npos) {
    return false;
  }
  int depth = 0;
  for (std::size_t i = 0; i < pattern.size(); ++i) {
    const char c = pattern[i];
    if (c == '\\') {
      ++i;
    } else if (c == '[') {
      // A bracket expression ends at the first "]" that is neither its first member nor the end of a class.
      i += i + 1 < pattern.size() && pattern[i + 1] == '^' ? 2 : 1;
      for (++i; i < pattern.size() && pattern[i] != ']'; ++i) {
        if (pattern[i] == '[' && i + 1 < pattern.size() && std::string_view(".:=").find(pattern[i + 1]) < 3) {
          i = pattern.find(std::string{pattern[i + 1], ']'}, i + 2);
          if (i == std::string::npos) {
            return false;
          }
          ++i;
        }
      }
    } else if (c == '(') {
      ++depth;
    } else if (c == ')') {
      --depth;
    } else if (c == '|' && depth <= 0) {
      return false;
    }
  }
  std::string fault;
  AccessDirectory::CompilePattern(pattern, fault);
  return fault.empty();
}

} // namespace Host
